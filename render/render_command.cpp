#include "render/render_command.h"

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <new>

#include "render/aligned_stream.h"
#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/output_file.h"
#include "render/audio/pcm_sink.h"
#include "render/audio/pcm_source.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"
#include "render/input.h"
#include "render/picture_command.h"
#include "render/progress.h"

namespace {

std::string HertzText(uint32_t rateHz) {
    return std::to_string(rateHz) + " Hz";
}

// The rate that the output gets: the file's, or else one that its format takes.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz) {
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
    if (job.strictRate) throw Failure(job.input + ": " + text);
    report->notes.push_back(text);
}

void CheckNames(const RenderJob& job) {
    const OutputFormat knownEnding(job.output);
    if (!job.picture.empty()) {
        CheckPictureName(job.picture, "IN", job.input, "/dev/stdin");
        CheckPictureName(job.picture, "OUT", job.output, "/dev/stdout");
        OutputFile::CheckName(job.picture, job.overwrite);
    }
    if (job.output != "-") OutputFile::CheckName(job.output, job.overwrite);
}

Report StartReport(const RenderJob& job, const AudioReader& reader) {
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
    report.delayFrames = DelayFrames(job.settings, job.bufferFrames);
    report.delayRemoved = !job.keepDelay;
    CheckRates(job, &report);
    if (reader.HasReplayGain())
        report.notes.emplace_back("ReplayGain tags are dropped: the loudness has changed");
    return report;
}

// One run from file to file. The members stand in the order in which they are opened.
class Rendering {
public:
    Rendering(const RenderJob& renderJob, const EffectLibrary& effectLibrary)
        : job(renderJob),
          library(effectLibrary),
          reader(job.input),
          report(StartReport(job, reader)),
          format{report.chainRateHz, report.channels, job.bufferFrames},
          chain(library, job.settings, format, job.keepDelay),
          source(reader, report.chainRateHz, job.dither, job.measure),
          png(job.picture.empty() ? nullptr
                                  : std::make_unique<OutputFile>(job.picture, job.overwrite)),
          writer(OpenAudioWriter(job.output, job.overwrite,
                                 {report.outputRateHz, report.channels, reader.Frames()},
                                 reader.Tags())),
          sink(*writer, {report.chainRateHz, report.outputRateHz}, report.channels, job.dither,
               job.measure) {}

    Report Run() {
        Play();
        Note();
        writer->Commit();
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
            KeepForPicture(pcm);
            progress.Update(source.FramesRead());
        }
        processed.clear();
        chain.Finish(&processed);
        sink.Write(processed);
        report.frames = source.FramesRead();
        if (report.frames == 0 && reader.Frames() != 0)
            throw Failure(job.input + " holds no samples that can be read");
        const uint64_t spanFrames = job.keepDelay ? chain.FramesOut() : report.frames;
        const uint64_t spanRateHz = job.keepDelay ? report.chainRateHz : report.rateHz;
        sink.Finish((spanFrames * report.outputRateHz + spanRateHz / 2) / spanRateHz);
        report.speed = progress.Speed(report.frames);
    }

    // A picture that there is no memory for costs nothing but itself.
    void KeepForPicture(const std::vector<int16_t>& pcm) {
        if (!png) return;
        try {
            whole.insert(whole.end(), pcm.begin(), pcm.end());
        } catch (const std::bad_alloc&) {
            png.reset();
            whole = {};
            report.missing = NoMemory();
        }
    }

    void Note() {
        if (reader.Frames() && report.frames < *reader.Frames())
            report.notes.push_back(job.input + " ends early: " + std::to_string(report.frames) +
                                   " of " + std::to_string(*reader.Frames()) + " frames");
        else if (const auto data = reader.Data(); data && data->present < data->promised)
            report.notes.push_back(job.input + " ends early: " + std::to_string(data->present) +
                                   " of " + std::to_string(data->promised) + " bytes of audio");
        report.dithered = source.Dithers();
        report.before = source.Measured();
        report.after = sink.Measured();
        report.clippedIn = source.Clipped();
        report.clippedOut = sink.Clipped();
        report.notNumbers = source.NotNumbers();
        if (report.notNumbers > 0)
            report.notes.push_back(
                "samples on the way in that are no numbers, taken for silence: " +
                std::to_string(report.notNumbers));
    }

    void Draw() {
        try {
            DrawBeforeAndAfter({TitleOf(job.input, reader), job.preset, job.settings, format},
                               library, whole, job.picture, *png);
            png->Commit();
        } catch (const std::bad_alloc&) {
            report.missing = NoMemory();
        } catch (const std::exception& error) {
            report.missing = error.what();
        }
    }

    std::string NoMemory() const { return job.picture + " cannot be drawn: not enough memory"; }

    const RenderJob& job;
    const EffectLibrary& library;
    AudioReader reader;
    Report report;
    StreamFormat format;
    AlignedStream chain;
    PcmSource source;
    std::unique_ptr<OutputFile> png;
    std::unique_ptr<AudioWriter> writer;
    PcmSink sink;
    std::vector<int16_t> whole;  // the input as the chain takes it, for the picture
};

}  // namespace

RenderCommand::RenderCommand(CLI::App& program)
    : Command(program, "render", "process an audio file") {
    app.add_option("IN", job.input, "audio file; - is standard input")->required();
    app.add_option("OUT", job.output, "its ending names the format; - is WAV on standard output")
        ->required();
    app.add_option("--picture", job.picture, "also draw before and after")->type_name("PNG");
    app.add_flag("--keep-delay", job.keepDelay, "don't remove the chain's delay");
    app.add_flag("--strict-rate", job.strictRate, "refuse to resample");
    app.add_flag("--json", json, "report as JSON on standard output");
    app.add_flag("--no-dither", noDither, "round to 16 bits without dither");
    common.AddTo(app);
}

void RenderCommand::Run() {
    job.settings = common.settings.Resolve();
    job.preset = common.settings.PresetName();
    job.bufferFrames = common.bufferFrames;
    job.overwrite = common.overwrite;
    job.dither = !noDither;
    if (json && job.output == "-")
        throw UsageError("--json and the audio cannot both go to standard output");
    if (job.output == "-" && isatty(STDOUT_FILENO) != 0)
        throw UsageError("standard output is a terminal; pipe the audio somewhere");
    job.measure = json || !common.quiet;
    job.showProgress = !common.quiet && isatty(STDERR_FILENO) != 0;
    common.settings.CheckSave({job.input, job.output, job.picture}, common.overwrite);
    const EffectLibrary library = common.library.Open();
    Report report = Render(job, library);
    common.settings.Save(common.overwrite);
    for (const std::string& line : common.settings.Idle()) report.notes.push_back(line);
    if (json)
        PrintToStandardOutput(JsonOf(report));
    else if (!common.quiet)
        std::fputs(TextOf(report).c_str(), stderr);
    if (!report.missing.empty()) throw Failure(report.missing + "; the audio is complete");
}

Report Render(const RenderJob& job, const EffectLibrary& library) {
    CheckNames(job);
    return Rendering(job, library).Run();
}
