#include "render/picture_command.h"

#include <unistd.h>

#include "render/failure.h"

PictureCommand::PictureCommand(CLI::App& program)
    : Command(program, "picture", "draw an audio file before and after") {
    app.add_option("IN", job.input, "audio file; - is standard input")->required();
    app.add_option("OUT", job.picture, "PNG file")->required();
    app.add_flag("--no-dither", noDither, "round to 16 bits without dither");
    AddColdStartTo(app, &job.coldStart);
    common.AddTo(app);
}

void PictureCommand::Run() {
    job.settings = common.settings.Resolve();
    job.tone = common.settings.Tone();
    job.preset = common.settings.PresetName();
    job.bufferFrames = common.bufferFrames;
    job.overwrite = common.overwrite;
    job.dither = !noDither;
    job.showProgress = !common.quiet && isatty(STDERR_FILENO) != 0;
    common.settings.CheckSave({job.input, job.picture}, common.overwrite);
    const EffectLibrary library = common.library.Open();
    const Report report = Render(job, library);
    if (!report.missing.empty()) throw Failure(report.missing);
    common.settings.Save(report.settings, common.overwrite);
}
