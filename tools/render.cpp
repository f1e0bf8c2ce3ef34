#include "tools/render.h"

#include <filesystem>
#include <optional>

#include "client/settings_text.h"
#include "tools/aligned_stream.h"
#include "tools/audio_reader.h"
#include "tools/audio_writer.h"
#include "tools/failure.h"
#include "tools/output_file.h"
#include "tools/pcm_sink.h"
#include "tools/pcm_source.h"
#include "tools/picture.h"
#include "tools/progress.h"
#include "tools/response.h"

namespace {

std::string HertzText(uint32_t rateHz) {
    return std::to_string(rateHz) + " Hz";
}

void CheckChannels(const std::string& input, const AudioReader& reader) {
    if (reader.Channels() > 2)
        throw Failure(input + " has " + std::to_string(reader.Channels()) +
                      " channels and the effect takes one or two; downmix first, for example with"
                      " sox " +
                      input + " -c 2 stereo.wav");
}

// The rate that the output gets: the file's, or else one that its format takes.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz) {
    const OutputFormat format(output);
    for (const uint32_t rateHz : {fileRateHz, ChainRateHz(fileRateHz)})
        if (format.TakesRate(rateHz)) return rateHz;
    return 48000;
}

// Says which rates differ; with strictRate refuses.
void CheckRates(const Report& report, const RenderJob& job, std::vector<std::string>* notes) {
    std::string text;
    if (report.chainRateHz != report.rateHz)
        text = HertzText(report.rateHz) + " is outside 32000 to 48000 Hz; the chain runs at " +
               HertzText(report.chainRateHz);
    if (report.outputRateHz != report.rateHz)
        text += std::string(text.empty() ? "" : "; ") + "the format of " + job.output +
                " doesn't take " + HertzText(report.rateHz) + ", it gets " +
                HertzText(report.outputRateHz);
    else if (!text.empty())
        text += ", resampled there and back";
    if (text.empty()) return;
    if (job.strictRate) throw Failure(job.input + ": " + text);
    notes->push_back(text);
}

std::string TitleOf(const std::string& input, const AudioReader& reader) {
    for (const Tag& tag : reader.Tags())
        if (tag.field == SF_STR_TITLE) return tag.text;
    return input == "-" ? "standard input" : std::filesystem::path(input).filename().string();
}

// How a picture runs a piece through the chain.
auto Runner(const EffectLibrary& library, const Settings& settings, const StreamFormat& format,
            bool startsCold) {
    return [&library, settings, format, startsCold](const std::vector<int16_t>& in) {
        return PlayAligned(library, settings, format, startsCold, in);
    };
}

std::vector<float> Floats(const std::vector<int16_t>& pcm) {
    std::vector<float> floats(pcm.begin(), pcm.end());
    for (float& sample : floats) sample /= 32768.0f;
    return floats;
}

// Draws onto a temporary file; the caller commits it.
void Draw(const RenderJob& job, const EffectLibrary& library, const StreamFormat& format,
          const std::string& title, const std::vector<int16_t>& pcm, const OutputFile& png) {
    Settings withoutGain = job.settings;
    withoutGain.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
    PictureInput input;
    input.title = title;
    input.settings = job.preset + ": " + Describe(job.settings);
    input.rateHz = format.rateHz;
    input.channels = static_cast<int>(format.channels);
    input.chain = Runner(library, job.settings, format, job.coldStart);
    input.chainWithoutPlaybackGain = Runner(library, withoutGain, format, job.coldStart);
    input.before = Floats(pcm);
    input.after = Floats(input.chain(pcm));
    std::string error;
    if (!DrawPicture(input, png.TemporaryPath(), &error))
        throw Failure(job.picture + " cannot be drawn: " + error);
}

}  // namespace

Report Render(const RenderJob& job, const EffectLibrary& library) {
    Report report{};
    report.input = job.input;
    report.output = job.output;
    report.preset = job.preset;
    report.settings = job.settings;
    report.bufferFrames = job.bufferFrames;
    const OutputFormat outputFormat(job.output);
    if (job.output == job.picture) throw UsageError("OUT and --picture are the same file");
    if (job.output != "-") OutputFile::CheckName(job.output, job.overwrite);
    if (!job.picture.empty()) OutputFile::CheckName(job.picture, job.overwrite);

    AudioReader reader(job.input);
    CheckChannels(job.input, reader);
    report.rateHz = reader.RateHz();
    report.channels = reader.Channels();
    report.chainRateHz = ChainRateHz(report.rateHz);
    report.outputRateHz = OutputRateHz(job.output, report.rateHz);
    CheckRates(report, job, &report.notes);
    if (reader.HasReplayGain())
        report.notes.emplace_back("ReplayGain tags are dropped: the loudness has changed");

    const StreamFormat format{report.chainRateHz, report.channels, job.bufferFrames};
    AlignedStream chain(library, job.settings, format, {job.keepDelay, job.coldStart});
    report.settlingFrames = chain.SettlingFrames();
    report.delayFrames = DelayFrames(job.settings, job.bufferFrames);
    report.delayRemoved = !job.keepDelay;
    PcmSource source(reader, report.chainRateHz, job.dither, job.measure);
    report.dithered = source.Dithers();

    std::optional<OutputFile> png;
    if (!job.picture.empty()) png.emplace(job.picture, job.overwrite);
    const std::unique_ptr<AudioWriter> writer =
        OpenAudioWriter(job.output, job.overwrite,
                        {report.outputRateHz, report.channels, reader.Frames()}, reader.Tags());
    PcmSink sink(*writer, {report.chainRateHz, report.outputRateHz}, report.channels, job.dither,
                 job.measure);

    std::vector<int16_t> pcm, processed, whole;
    {
        Progress progress(job.showProgress, report.rateHz, reader.Frames());
        while (source.Read(&pcm)) {
            processed.clear();
            chain.Process(pcm, &processed);
            sink.Write(processed);
            if (png) whole.insert(whole.end(), pcm.begin(), pcm.end());
            progress.Update(source.FramesRead());
        }
        processed.clear();
        chain.Finish(&processed);
        sink.Write(processed);
        report.frames = source.FramesRead();
        const uint64_t spanFrames = job.keepDelay ? chain.FramesOut() : report.frames;
        const uint64_t spanRateHz = job.keepDelay ? report.chainRateHz : report.rateHz;
        if (report.frames == 0 && reader.Frames() != 0)
            throw Failure(job.input + " holds no samples that can be read");
        sink.Finish((spanFrames * report.outputRateHz + spanRateHz / 2) / spanRateHz);
        report.speed = progress.Speed(report.frames);
    }
    if (reader.Frames() && report.frames < *reader.Frames())
        report.notes.push_back(job.input + " ends early: " + std::to_string(report.frames) +
                               " of " + std::to_string(*reader.Frames()) + " frames");
    report.before = source.Measured();
    report.after = sink.Measured();
    report.clippedIn = source.Clipped();
    report.clippedOut = sink.Clipped();

    if (png) Draw(job, library, format, TitleOf(job.input, reader), whole, *png);
    writer->Commit();
    if (png) png->Commit();
    return report;
}

void DrawPictureOf(const RenderJob& job, const EffectLibrary& library) {
    OutputFile::CheckName(job.picture, job.overwrite);
    AudioReader reader(job.input);
    CheckChannels(job.input, reader);
    const uint32_t chainRateHz = ChainRateHz(reader.RateHz());
    PcmSource source(reader, chainRateHz, job.dither, false);
    std::vector<int16_t> pcm, whole;
    while (source.Read(&pcm)) whole.insert(whole.end(), pcm.begin(), pcm.end());
    OutputFile png(job.picture, job.overwrite);
    Draw(job, library, {chainRateHz, reader.Channels(), job.bufferFrames},
         TitleOf(job.input, reader), whole, png);
    png.Commit();
}

void DrawResponseOf(const ResponseJob& job, const EffectLibrary& library) {
    Settings both = job.settings;
    both.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
    both.Unset(PARAM_OUTPUT_GAIN);
    both.Unset(PARAM_LIMITER_GATE);
    Settings equalizer = both, enhancer = both;
    equalizer.Set(PARAM_ENHANCER_ENABLE, 0);
    enhancer.Unset(PARAM_EQUALIZER_BANDLEVEL);
    enhancer.Set(PARAM_EQUALIZER_ENABLE, 0);

    const StreamFormat format{job.rateHz, job.channels, job.bufferFrames};
    ResponseInput input;
    input.settings = Describe(both);
    input.rateHz = job.rateHz;
    input.channels = static_cast<int>(job.channels);
    input.equalizerOnly = Runner(library, equalizer, format, false);
    input.enhancerOnly = Runner(library, enhancer, format, false);
    input.both = Runner(library, both, format, false);
    OutputFile png(job.picture, job.overwrite);
    std::string error;
    if (!DrawResponse(input, png.TemporaryPath(), &error))
        throw Failure(job.picture + " cannot be drawn: " + error);
    png.Commit();
}
