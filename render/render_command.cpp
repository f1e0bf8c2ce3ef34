#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <exception>
#include <filesystem>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "client/settings_text.h"
#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/background_writer.h"
#include "render/audio/output_file.h"
#include "render/audio/pipe_copy.h"
#include "render/ceiling.h"
#include "render/chain_run.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/effect_library.h"
#include "render/failure.h"
#include "render/match.h"
#include "render/pictures/picture.h"
#include "render/report.h"

namespace {

// Throws UsageError if the picture would overwrite the audio. `role` is "IN" or "OUT", and `stream`
// is the file that "-" stands for.
void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream) {
    if (audio == picture || AreOneFile(audio == "-" ? stream : audio, picture))
        throw UsageError("{} and the picture are the same file", role);
}

void CheckNames(const RenderJob& job) {
    if (!job.output.empty()) const OutputFormat knownEnding(job.output);
    if (!job.picture.empty()) {
        CheckPictureName(job.picture, "IN", job.input, "/dev/stdin");
        if (!job.output.empty()) CheckPictureName(job.picture, "OUT", job.output, "/dev/stdout");
        OutputFile::CheckName(job.picture, job.overwrite);
    }
    if (job.output != "-" && !job.output.empty()) OutputFile::CheckName(job.output, job.overwrite);
}

std::unique_ptr<AudioWriter> OpenOutput(const RenderJob& job, const Report& report,
                                        const AudioReader& reader) {
    if (job.output.empty()) return std::make_unique<NoWriter>();
    const uint64_t delay =
        job.keepDelay ? AtRate(report.delayFrames, report.chainRateHz, report.outputRateHz) : 0;
    auto writer = OpenAudioWriter(job.output, job.overwrite,
                                  {.rateHz = report.outputRateHz,
                                   .channels = report.channels,
                                   .frames = reader.Frames(),
                                   .delayFrames = delay,
                                   .times = job.times,
                                   .quality = job.quality},
                                  reader.Tags());
    if (job.output == "-") return std::make_unique<BackgroundWriter>(std::move(writer), 1);
    return std::make_unique<BackgroundWriter>(std::move(writer));
}

// Makes one output once. The members are declared in the order in which they must be opened.
class Rendering {
public:
    // `outputGain` is that of PcmSink.
    Rendering(const RenderJob& renderJob, const std::optional<Match>& match,
              const std::string& copyOfPipe, const EffectLibrary& effectLibrary, double outputGain)
        : job(renderJob),
          library(effectLibrary),
          gain(outputGain),
          reader(job.input, copyOfPipe),
          report(StartReport(job, match, reader)),
          before(job.picture.empty() ? job.metering : Metering::kOverTime),
          after(job.picture.empty() ? job.metering : Metering::kOverTime),
          run(job, library, report.settings, reader, before),
          png(job.picture.empty() ? nullptr
                                  : std::make_unique<OutputFile>(job.picture, job.overwrite)),
          writer(OpenOutput(job, report, reader)) {}

    // Writes the file under a temporary name. Returns its true peak in dB, for a lossy format after
    // decoding, or NaN if the peak is not measured.
    double Make() {
        run.Play(*writer, report.outputRateHz, after, gain);
        run.AddTo(&report);
        if (report.frames == 0 && reader.Frames() != 0)
            throw Failure("{} holds no samples that can be read", job.input);
        measuredBefore = before.Finish();
        measuredAfter = after.Finish();
        report.before = measuredBefore.loudness;
        report.after = measuredAfter.loudness;
        if (job.onlyWhole && !report.damage.empty())
            throw Failure("{}; nothing is written", DamageText(job.input, report.damage));
        if (job.metering == Metering::kNothing || job.output.empty() || job.output == "-")
            return std::numeric_limits<double>::quiet_NaN();
        writer->Close();
        if (!OutputFormat(job.output).IsLossy()) return report.after.truePeakDb;
        if (report.frames == 0) return -std::numeric_limits<double>::infinity();
        AddDecodedPeak(writer->ClosedPath(), &report);
        return *report.decodedPeakDb;
    }

    // Gives the file its name and draws the picture. Call it once, after Make.
    Report Finish() {
        std::optional<Gains> gains;
        if (GetsGains(job, job.output, reader.Tags())) {
            gains = {report.after, std::nullopt};
            WriteGains(writer->ClosedPath(), job.output, *gains);
        }
        writer->Commit();
        if (!job.output.empty())
            NoteTags(job.output == "-" ? "standard output" : job.output, *writer, reader.Tags(),
                     gains, &report);
        if (png) Draw();
        return report;
    }

private:
    void Draw() {
        try {
            DrawPicture(TakePictureInput(), {png->TemporaryPath(), job.picture});
            png->Commit();
        } catch (const std::bad_alloc&) {
            report.missing = job.picture + " cannot be drawn: not enough memory";
        } catch (const std::exception& error) {
            report.missing = error.what();
        }
    }

    // Returns what the picture shows. Moves the measurements into it.
    PictureInput TakePictureInput() {
        PictureInput input;
        input.title = TitleOf(job.input, reader);
        input.settings = job.preset + ": " + Describe(report.settings);
        input.asked = job.tone.curve.points;
        for (TonePoint& point : input.asked)
            point.db += 20 * std::log10(report.settings.Get(PARAM_OUTPUT_GAIN));
        input.seconds = report.seconds;
        input.before = std::move(measuredBefore);
        input.after = std::move(measuredAfter);
        input.rateHz = run.Format().rateHz;
        input.channels = static_cast<int>(run.Format().channels);
        Settings withoutGain = report.settings;
        withoutGain.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
        // Without the playback gain nothing has to settle, and the measurement plays its noise once
        // before it measures. So the chain may start cold.
        input.chainWithoutPlaybackGain = AlignedPlayer(library, withoutGain, run.Format(), true);
        input.enhances = report.settings.IsOn(PARAM_ENHANCER_ENABLE);
        return input;
    }

    const RenderJob& job;
    const EffectLibrary& library;
    double gain;
    AudioReader reader;
    Report report;
    StreamMeter before, after;
    ChainRun run;
    std::unique_ptr<OutputFile> png;
    std::unique_ptr<AudioWriter> writer;
    Measured measuredBefore, measuredAfter;
};

// Throws Failure or UsageError; then no new output exists. If only the picture cannot be drawn, the
// audio is kept, and the report says what is missing.
Report Render(const RenderJob& job, const EffectLibrary& library) {
    CheckNames(job);
    std::optional<PipeCopy> pipe;
    if ((job.match || job.ceilingDb) && PipeCopy::IsNeeded(job.input)) pipe.emplace(job.input);
    const std::string copyOfPipe = pipe ? pipe->Path() : "";
    const auto open = [&] {
        auto reader = std::make_unique<AudioReader>(job.input, copyOfPipe);
        CheckFormat(job.input, *reader);
        return reader;
    };
    std::optional<Match> match;
    if (job.match) match = MatchPiece(job, {open}, library);
    Ceiling ceiling(job.ceilingDb);
    while (true) {
        Rendering rendering(job, match, copyOfPipe, library, ceiling.Gain());
        if (ceiling.NeedsAnother(rendering.Make())) continue;
        Report report = rendering.Finish();
        ceiling.AddTo(&report);
        if (job.match) NoteMatch(match, &report);
        return report;
    }
}

class RenderCommand final : public Command {
public:
    explicit RenderCommand(Options& program);
    void Run() override;

private:
    RenderOptions render;
    RenderJob job;
};

RenderCommand::RenderCommand(Options& program)
    : Command(program, "render", "process an audio file") {
    options.Add("IN", &job.input, "audio file; - is standard input").Required();
    options
        .Add("OUT", &job.output,
             "output file, whose ending selects the format; - is WAV on standard output")
        .Required();
    options.Add("--picture", &job.picture, "also draw a picture of the sound before and after")
        .Type("PNG");
    options.AddFlag("--keep-delay", &job.keepDelay, "don't remove the chain's delay");
    options.AddFlag("--only-whole", &job.onlyWhole,
                    "write nothing if the source is damaged, and end with exit status 1. Without "
                    "this option, the readable part is written, with exit status 3");
    render.AddTo(options, &job);
}

void RenderCommand::Run() {
    render.Fill(&job);
    if (render.Skips({job.output})) return;
    render.CheckQuality({job.output});
    if (job.onlyWhole && job.output == "-")
        throw UsageError(
            "--only-whole needs a file as output, because audio in a pipe cannot be taken back");
    if (job.keepTimes && job.output == "-")
        throw UsageError("standard output has no times to keep");
    if (job.keepTimes) job.times = TimesOf(job.input);
    if (job.ceilingDb && job.output == "-")
        throw UsageError(
            "--ceiling needs a file as output, because audio in a pipe cannot be lowered "
            "afterwards");
    if (render.json && job.output == "-")
        throw UsageError("--json and the audio cannot both go to standard output");
    if (job.output == "-" && isatty(STDOUT_FILENO) != 0)
        throw UsageError("standard output is a terminal; pipe the audio somewhere");
    render.common.settings.CheckSave({job.input, job.output, job.picture}, job.overwrite);
    const EffectLibrary library = render.common.library.Open();
    Report report = Render(job, library);
    render.Finish(&report);
    if (!report.missing.empty())
        throw Failure("{}; the audio is {}", report.missing,
                      report.damage.empty() ? "complete"
                                            : "written as far as it can be read: " +
                                                  DamageText(job.input, report.damage));
    if (!report.damage.empty())
        throw DamagedSource("{}; what could be read is written",
                            DamageText(job.input, report.damage));
}

// Draws a picture of an audio file before and after the chain.
class PictureCommand final : public Command {
public:
    explicit PictureCommand(Options& program);
    void Run() override;

private:
    CommonOptions common;
    RenderJob job;
    bool noDither = false;
};

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

}  // namespace

std::unique_ptr<Command> MakeRenderCommand(Options& program) {
    return std::make_unique<RenderCommand>(program);
}

std::unique_ptr<Command> MakePictureCommand(Options& program) {
    return std::make_unique<PictureCommand>(program);
}
