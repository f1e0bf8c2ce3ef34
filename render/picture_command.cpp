#include "render/picture_command.h"

#include "render/failure.h"

PictureCommand::PictureCommand(Options& program)
    : Command(program, "picture", "draw a picture of an audio file before and after") {
    options.Add("IN", &job.input, "audio file; - is standard input").Required();
    options.Add("OUT", &job.picture, "PNG file").Required();
    options.AddFlag("--no-dither", &noDither, "round to 16 bits without dither");
    AddColdStartTo(options, &job.coldStart);
    common.AddTo(options);
}

void PictureCommand::Run() {
    common.Fill(&job);
    job.dither = !noDither;
    common.settings.CheckSave({job.input, job.picture}, common.overwrite);
    const EffectLibrary library = common.library.Open();
    const Report report = Render(job, library);
    if (!report.missing.empty()) throw Failure(report.missing);
    common.settings.Save(report.settings, common.overwrite);
    PrintWarnings(report);
    if (!report.damage.empty())
        throw DamagedSource("{}; the picture shows what could be read",
                            DamageText(job.input, report.damage));
}
