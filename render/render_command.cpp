#include "render/render_command.h"

#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>

#include "client/settings_text.h"
#include "render/aligned_stream.h"
#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/background_writer.h"
#include "render/audio/output_file.h"
#include "render/audio/pcm_sink.h"
#include "render/audio/pcm_source.h"
#include "render/audio/pipe_copy.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"
#include "render/input.h"
#include "render/match.h"
#include "render/piece_picture.h"
#include "render/progress.h"

namespace {

std::string HertzText(uint32_t rateHz) {
    return std::to_string(rateHz) + " Hz";
}

// The rate that the output gets: the file's, or else one that its format takes.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz) {
    if (output.empty()) return fileRateHz;
    const OutputFormat format(output);
    for (const uint32_t rateHz : {fileRateHz, ChainRateHz(fileRateHz)})
        if (format.TakesRate(rateHz)) return rateHz;
    return 48000;
}

// Says which rates differ; with strictRate refuses.
void CheckRates(const RenderJob& job, Report* report) {
    std::string text;
    if (report->chainRateHz != report->rateHz)
        text = HertzText(report->rateHz) + " is outside 32000 to 48000 Hz; the chain runs at " +
               HertzText(report->chainRateHz);
    if (report->outputRateHz != report->rateHz)
        text += std::string(text.empty() ? "" : "; ") + "the format of " + job.output +
                " doesn't take " + HertzText(report->rateHz) + ", it gets " +
                HertzText(report->outputRateHz);
    else if (!text.empty())
        text += ", resampled there and back";
    if (text.empty()) return;
    if (job.strictRate) throw Failure("{}: {}", job.input, text);
    report->notes.push_back(text);
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

Report StartReport(const RenderJob& job, const std::optional<Match>& match,
                   const AudioReader& reader) {
    CheckChannels(job.input, reader);
    Report report{};
    report.input = job.input;
    report.output = job.output;
    report.preset = job.preset;
    report.settings = job.settings;
    report.bufferFrames = job.bufferFrames;
    report.rateHz = reader.RateHz();
    report.channels = reader.Channels();
    report.chainRateHz = ChainRateHz(report.rateHz);
    report.outputRateHz = OutputRateHz(job.output, report.rateHz);
    report.tone = job.tone.Grant(report.chainRateHz, &report.settings);
    if (match) {
        report.settings.Set(PARAM_OUTPUT_GAIN, match->gain);
        report.matchedLufs = match->wantedLufs;
    }
    report.delayFrames = DelayFrames(report.settings, job.bufferFrames);
    report.delayRemoved = !job.keepDelay;
    CheckRates(job, &report);
    return report;
}

// Where a picture alone is wanted.
class NoWriter final : public AudioWriter {
public:
    void Write(std::span<const int16_t> /*samples*/) override {}
    void Commit() override {}
    std::vector<std::string> NotKept() const override { return {}; }
};

std::unique_ptr<AudioWriter> OpenOutput(const RenderJob& job, const Report& report,
                                        const AudioReader& reader) {
    if (job.output.empty()) return std::make_unique<NoWriter>();
    return std::make_unique<BackgroundWriter>(
        OpenAudioWriter(job.output, job.overwrite,
                        {report.outputRateHz, report.channels, reader.Frames()}, reader.Tags()));
}

// Frames at the output's rate before the piece begins.
uint64_t FirstFrame(const RenderJob& job, const Report& report) {
    if (!job.keepDelay) return 0;
    return (uint64_t{report.delayFrames} * report.outputRateHz + report.chainRateHz / 2) /
           report.chainRateHz;
}

// One run from file to file. The members stand in the order in which they are opened.
class Rendering {
public:
    Rendering(const RenderJob& renderJob, const std::optional<Match>& match,
              const std::string& copyOfPipe, const EffectLibrary& effectLibrary)
        : job(renderJob),
          library(effectLibrary),
          reader(job.input, copyOfPipe),
          report(StartReport(job, match, reader)),
          format{report.chainRateHz, report.channels, job.bufferFrames},
          chain(library, report.settings, format, {job.keepDelay, job.coldStart}),
          metering(job.picture.empty() ? job.metering : Metering::kOverTime),
          source(reader, report.chainRateHz, job.dither, metering),
          png(job.picture.empty() ? nullptr
                                  : std::make_unique<OutputFile>(job.picture, job.overwrite)),
          writer(OpenOutput(job, report, reader)),
          sink(*writer, {report.chainRateHz, report.outputRateHz}, report.channels, job.dither,
               metering, FirstFrame(job, report)) {}

    Report Run() {
        Play();
        Note();
        if (job.onlyWhole && !report.damage.empty())
            throw Failure("{}; nothing is written", DamageText(job.input, report.damage));
        writer->Commit();
        if (!job.output.empty()) NoteTags();
        if (png) Draw();
        return report;
    }

private:
    void Play() {
        Progress progress(job.showProgress, report.rateHz, reader.Frames());
        std::vector<int16_t> pcm, processed;
        while (source.Read(&pcm)) {
            processed.clear();
            chain.Process(pcm, &processed);
            sink.Write(processed);
            progress.Update(source.FramesRead());
        }
        processed.clear();
        chain.Finish(&processed);
        sink.Write(processed);
        report.frames = source.FramesRead();
        if (report.frames == 0 && reader.Frames() != 0)
            throw Failure("{} holds no samples that can be read", job.input);
        const uint64_t spanFrames = job.keepDelay ? chain.FramesOut() : report.frames;
        const uint64_t spanRateHz = job.keepDelay ? report.chainRateHz : report.rateHz;
        sink.Finish((spanFrames * report.outputRateHz + spanRateHz / 2) / spanRateHz);
        before = source.FinishMetering();
        after = sink.FinishMetering();
        report.speed = progress.Speed(report.frames);
    }

    void Note() {
        report.damage = source.Damage();
        report.settlingFrames = chain.SettlingFrames();
        report.dithered = source.Dithers();
        report.before = before.loudness;
        report.after = after.loudness;
        report.clippedIn = source.Clipped();
        report.clippedOut = sink.Clipped();
        report.notNumbers = source.NotNumbers();
    }

    void NoteTags() {
        std::vector<std::string> lost = writer->NotKept();
        const std::vector<std::string>& unread = reader.Tags().unread;
        lost.insert(lost.end(), unread.begin(), unread.end());
        if (!lost.empty())
            report.warnings.push_back(fmt::format("{} has no place for the tags {}", OutputName(),
                                                  fmt::join(lost, ", ")));
        if (const auto& gains = reader.Tags().gains; !gains.empty())
            report.warnings.push_back(
                fmt::format("{} goes without {}, because the loudness has changed", OutputName(),
                            fmt::join(gains, ", ")));
    }

    std::string OutputName() const { return job.output == "-" ? "standard output" : job.output; }

    void Draw() {
        try {
            DrawPiece({TitleOf(job.input, reader), job.preset, report.settings, job.tone.points,
                       format, static_cast<double>(report.frames) / report.rateHz,
                       std::move(before), std::move(after)},
                      library, job.picture, *png);
            png->Commit();
        } catch (const std::bad_alloc&) {
            report.missing = job.picture + " cannot be drawn: not enough memory";
        } catch (const std::exception& error) {
            report.missing = error.what();
        }
    }

    const RenderJob& job;
    const EffectLibrary& library;
    AudioReader reader;
    Report report;
    StreamFormat format;
    AlignedStream chain;
    Metering metering;
    PcmSource source;
    std::unique_ptr<OutputFile> png;
    std::unique_ptr<AudioWriter> writer;
    PcmSink sink;
    Measured before, after;
};

// The flag's value: a number, "true" for none, "" if it wasn't given.
std::optional<MatchWish> ReadMatch(const std::string& text) {
    if (text.empty()) return std::nullopt;
    if (text == "true") return MatchWish{};
    double lufs = 0;
    if (!ReadNumber(text, &lufs) || !(lufs >= -60 && lufs <= 0))
        throw UsageError("--match={} is not a loudness from -60 to 0 LUFS", text);
    return MatchWish{lufs};
}

void NoteMatch(const std::optional<Match>& match, Report* report) {
    if (!match) {
        report->notes.push_back("nothing was matched: " + report->input +
                                " is silent or too short to have a loudness");
        return;
    }
    const double offLu = report->after.integratedLufs - match->wantedLufs;
    if (!(std::abs(offLu) > kMatchToleranceLu)) return;
    const Parameter& gain = ParameterOf(PARAM_OUTPUT_GAIN);
    const bool highest = match->gain == gain.maximum;
    report->notes.push_back(
        "the loudness is " + DecibelText(offLu) + " LU off: the output gain " +
        (highest ? "ends at " + ValueText(gain, gain.maximum) + ", and the limiters hold the rest"
                 : "has no step that comes nearer"));
}

}  // namespace

RenderCommand::RenderCommand(Options& program)
    : Command(program, "render", "process an audio file") {
    options.Add("IN", &job.input, "audio file; - is standard input").Required();
    options.Add("OUT", &job.output, "its ending names the format; - is WAV on standard output")
        .Required();
    options.Add("--picture", &job.picture, "also draw before and after").Type("PNG");
    options.AddFlag("--keep-delay", &job.keepDelay, "don't remove the chain's delay");
    options.AddFlag("--strict-rate", &job.strictRate, "refuse to resample");
    options.AddFlag("--skip-existing", &skipExisting,
                    "do nothing if OUT is there: what is there is whole, so a run that was cut off "
                    "goes on");
    options.AddFlag("--only-whole", &job.onlyWhole,
                    "write nothing if the source is damaged: exit status 1; without this, what can "
                    "be read of it is written, with exit status 3");
    options.AddFlag("--json", &json, "report as JSON on standard output");
    options.AddFlag("--no-dither", &noDither, "round to 16 bits without dither");
    AddColdStartTo(options, &job.coldStart);
    options.AddFlag("--match", &match,
                    "solve for the output gain that makes the result as loud as the source, or "
                    "--match=-16 as loud as that in LUFS; plays the input several times");
    common.AddTo(options);
}

void RenderCommand::Run() {
    job.settings = common.settings.Resolve();
    job.preset = common.settings.PresetName();
    job.bufferFrames = common.bufferFrames;
    job.overwrite = common.overwrite;
    job.dither = !noDither;
    if (skipExisting && common.overwrite)
        throw UsageError("--skip-existing and --force cannot both be meant");
    if (std::error_code ignored;
        skipExisting && std::filesystem::is_regular_file(job.output, ignored)) {
        if (!common.quiet) fmt::print(stderr, "{} exists already, skipped\n", job.output);
        return;
    }
    if (job.onlyWhole && job.output == "-")
        throw UsageError(
            "--only-whole needs a file as output: what went through a pipe cannot be taken back");
    if (json && job.output == "-")
        throw UsageError("--json and the audio cannot both go to standard output");
    if (job.output == "-" && isatty(STDOUT_FILENO) != 0)
        throw UsageError("standard output is a terminal; pipe the audio somewhere");
    job.tone = common.settings.Tone();
    job.match = ReadMatch(match);
    if (job.match && common.settings.Gives(PARAM_OUTPUT_GAIN))
        throw UsageError("--match and --output-gain set the same gain");
    if (job.match) job.tone.headroom = false;
    job.metering = json || !common.quiet ? Metering::kEverything : Metering::kNothing;
    job.showProgress = !common.quiet && isatty(STDERR_FILENO) != 0;
    common.settings.CheckSave({job.input, job.output, job.picture}, common.overwrite);
    const EffectLibrary library = common.library.Open();
    Report report = Render(job, library);
    common.settings.Save(report.settings, common.overwrite);
    for (const std::string& line : common.settings.Idle()) report.notes.push_back(line);
    if (json)
        PrintToStandardOutput(JsonOf(report));
    else if (!common.quiet)
        std::fputs(TextOf(report).c_str(), stderr);
    PrintWarnings(report);
    if (!report.missing.empty())
        throw Failure("{}; the audio is {}", report.missing,
                      report.damage.empty()
                          ? "complete"
                          : "as far as it goes: " + DamageText(job.input, report.damage));
    if (!report.damage.empty())
        throw DamagedSource("{}; what could be read is written",
                            DamageText(job.input, report.damage));
}

Report Render(const RenderJob& job, const EffectLibrary& library) {
    CheckNames(job);
    if (!job.match) return Rendering(job, std::nullopt, "", library).Run();
    std::optional<PipeCopy> pipe;
    if (PipeCopy::IsNeeded(job.input)) pipe.emplace(job.input);
    const std::string copyOfPipe = pipe ? pipe->Path() : "";
    const std::optional<Match> match = MatchPiece(job, copyOfPipe, library);
    Report report = Rendering(job, match, copyOfPipe, library).Run();
    NoteMatch(match, &report);
    return report;
}
