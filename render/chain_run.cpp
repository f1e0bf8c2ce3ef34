#include "render/chain_run.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <span>

#include "client/delay.h"
#include "client/settings_text.h"
#include "client/terminal_text.h"
#include "render/audio/audio_reader.h"
#include "render/audio/conversion.h"
#include "render/audio/loudness.h"
#include "render/audio/pcm.h"
#include "render/failure.h"

namespace {

std::string HertzText(uint32_t rateHz) {
    return std::to_string(rateHz) + " Hz";
}

// Adds a note that says which rates differ. Throws Failure instead if the job has strictRate.
void CheckRates(const RenderJob& job, Report* report) {
    std::string text;
    if (report->chainRateHz != report->rateHz)
        text = HertzText(report->rateHz) + " is outside 32000 to 48000 Hz, so the chain runs at " +
               HertzText(report->chainRateHz);
    if (report->outputRateHz != report->rateHz)
        text += std::string(text.empty() ? "" : "; ") + "the format of " + job.output +
                " doesn't take " + HertzText(report->rateHz) + ", so it gets " +
                HertzText(report->outputRateHz);
    else if (!text.empty())
        text += ", and the output is resampled back";
    if (text.empty()) return;
    if (job.strictRate) throw Failure("{}: {}", job.input, text);
    report->notes.push_back(text);
}

double DecodedPeakDb(const std::string& path) {
    AudioReader reader(path);
    if (reader.RateHz() < kLowestMeteredRateHz) return NAN;
    TruePeakMeter meter(reader.Channels(), reader.RateHz());
    for (auto samples = reader.Read(); !samples.empty(); samples = reader.Read())
        meter.Add(samples);
    return 20 * std::log10(meter.Peak());
}

// Shows a line on the terminal with the progress and the speed of a run.
class Progress {
public:
    // If `show` is false, nothing is printed and only the time is measured.
    Progress(bool show, uint32_t streamRateHz, std::optional<uint64_t> allFrames)
        : visible(show),
          rateHz(streamRateHz),
          total(allFrames),
          start(Clock::now()),
          shown(start) {}
    // Erases the line.
    ~Progress() {
        if (visible) std::fputs("\r\033[K", stderr);
    }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void Update(uint64_t frames) {
        constexpr std::chrono::milliseconds kInterval{200};
        if (!visible || Clock::now() - shown < kInterval) return;
        shown = Clock::now();
        const double speed = Speed(frames);
        if (total && *total > 0)
            std::fprintf(stderr, "\r\033[K%3.0f %%  %.0f times real time",
                         100.0 * static_cast<double>(frames) / static_cast<double>(*total), speed);
        else
            std::fprintf(stderr, "\r\033[K%.0f s  %.0f times real time",
                         static_cast<double>(frames) / rateHz, speed);
    }

    // Returns the seconds since the object was made, more than 0.
    double ElapsedSeconds() const {
        const std::chrono::duration<double> elapsed = Clock::now() - start;
        return std::max(elapsed.count(), 1e-6);
    }

private:
    // Returns the speed in seconds of audio per second.
    double Speed(uint64_t frames) const {
        return static_cast<double>(frames) / rateHz / ElapsedSeconds();
    }

    using Clock = std::chrono::steady_clock;
    bool visible;
    uint32_t rateHz;
    std::optional<uint64_t> total;
    Clock::time_point start, shown;
};

}  // namespace

uint64_t AtRate(uint64_t frames, uint32_t rateHz, uint32_t otherRateHz) {
    return (frames * otherRateHz + rateHz / 2) / rateHz;
}

uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz) {
    if (output.empty()) return fileRateHz;
    const OutputFormat format(output);
    for (const uint32_t rateHz : {fileRateHz, ChainRateHz(fileRateHz)})
        if (format.TakesRate(rateHz)) return rateHz;
    return 48000;
}

void CheckFormat(const std::string& input, const SampleReader& reader) {
    constexpr uint32_t kLowestHz = 1000, kHighestHz = 768000;
    if (reader.RateHz() < kLowestHz || reader.RateHz() > kHighestHz)
        throw Failure("{} has a sampling rate of {} Hz, outside {} to {} Hz", input,
                      reader.RateHz(), kLowestHz, kHighestHz);
    if (reader.Channels() > 2)
        throw Failure(
            "{} has {} channels, but the effect takes one or two; mix it down first, for example "
            "with"
            " sox {} -c 2 stereo.wav",
            input, reader.Channels(), input == "-" ? input : ShellQuoted(input));
}

std::string TitleOf(const std::string& input, const AudioReader& reader) {
    if (std::string title = reader.Tags().Title(); !title.empty()) return title;
    return input == "-" ? "standard input" : std::filesystem::path(input).filename().string();
}

ChainRun::ChainRun(const RenderJob& renderJob, const EffectLibrary& library,
                   const Settings& settings, SampleReader& sampleReader, StreamMeter& before)
    : job(renderJob),
      reader(sampleReader),
      format{ChainRateHz(reader.RateHz()), reader.Channels(), job.bufferFrames},
      delayFrames(DelayFrames(settings, job.bufferFrames)),
      chain(library, settings, format, {job.keepDelay, job.coldStart}),
      source(reader, format.rateHz, job.dither, before) {}

void ChainRun::Play(AudioWriter& writer, uint32_t outputRateHz, StreamMeter& after, double gain) {
    Progress progress(job.showProgress, reader.RateHz(), reader.Frames());
    // If the delay is kept, the piece begins after it.
    PcmSink sink(writer, {format.rateHz, outputRateHz}, format.channels, job.dither, gain, after,
                 job.keepDelay ? AtRate(delayFrames, format.rateHz, outputRateHz) : 0);
    std::span<const int16_t> pcm;
    std::vector<int16_t> processed;
    while (source.Read(&pcm)) {
        processed.clear();
        chain.Process(pcm, &processed);
        sink.Write(processed);
        progress.Update(source.FramesRead());
    }
    processed.clear();
    chain.Finish(&processed);
    sink.Write(processed);
    sink.Finish(job.keepDelay ? AtRate(chain.FramesOut(), format.rateHz, outputRateHz)
                              : AtRate(source.FramesRead(), reader.RateHz(), outputRateHz));
    clippedOut = sink.Clipped();
    elapsedSeconds = progress.ElapsedSeconds();
}

void ChainRun::AddTo(Report* report) const {
    report->frames += source.FramesRead();
    report->seconds += static_cast<double>(source.FramesRead()) / reader.RateHz();
    report->elapsedSeconds += elapsedSeconds;
    report->settlingFrames = chain.SettlingFrames();
    report->dithered = report->dithered || source.Dithers();
    report->clippedIn += source.Clipped();
    report->clippedOut += clippedOut;
    report->notNumbers += source.NotNumbers();
    for (std::string& fault : source.Damage()) report->damage.push_back(std::move(fault));
}

Report StartReport(const RenderJob& job, const std::optional<Match>& match,
                   const SampleReader& reader) {
    CheckFormat(job.input, reader);
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

void AddDecodedPeak(const std::string& path, Report* report) {
    const double peakDb = DecodedPeakDb(path), before = report->decodedPeakDb.value_or(-INFINITY);
    report->decodedPeakDb = before > peakDb ? before : peakDb;
}

void NoteMatch(const std::optional<Match>& match, Report* report) {
    if (!match) {
        report->notes.push_back("the loudness was not matched, because " + report->input +
                                " is silent or too short to have one");
        return;
    }
    const double offLu = report->after.integratedLufs - match->wantedLufs;
    if (report->ceiling && report->ceiling->gainDb < 0) {
        report->notes.push_back(
            fmt::format("the loudness is {} LU away from the wanted one, because the ceiling "
                        "lowered the output",
                        DecibelText(offLu)));
        return;
    }
    if (!(std::abs(offLu) > kMatchToleranceLu)) return;
    const Parameter& gain = ParameterOf(PARAM_OUTPUT_GAIN);
    const bool highest = match->gain == gain.maximum;
    report->notes.push_back(
        "the loudness is " + DecibelText(offLu) + " LU away from the wanted one, because " +
        (highest ? "the output gain cannot exceed " + ValueText(gain, gain.maximum) +
                       ", and the limiters hold the peaks"
                 : "no step of the output gain comes nearer"));
}

bool GetsGains(const RenderJob& job, const std::string& output, const AudioTags& tags) {
    if (output.empty() || output == "-" || job.metering == Metering::kNothing) return false;
    const OutputFormat format(output);
    if (job.gainTags != GainTags::kIfMeasured)
        return job.gainTags == GainTags::kAlways && format.TakesTags();
    return format.IsForPlayers() || (format.TakesTags() && !tags.gains.empty());
}

void NoteTags(const std::string& output, const AudioWriter& writer, const AudioTags& tags,
              const std::optional<Gains>& gains, Report* report) {
    std::vector<std::string> lost = writer.NotKept();
    for (const auto& unread : {tags.unread, tags.marks.unread})
        lost.insert(lost.end(), unread.begin(), unread.end());
    if (!lost.empty())
        report->warnings.push_back(fmt::format("{} cannot keep {}", output, fmt::join(lost, ", ")));
    std::vector<std::string> old = tags.gains;
    if (gains)
        old.erase(std::remove_if(old.begin(), old.end(),
                                 [&](const std::string& name) {
                                     return gains->album || name.find("ALBUM") == std::string::npos;
                                 }),
                  old.end());
    if (!old.empty())
        report->warnings.push_back(
            fmt::format("{} is written without {}, because the loudness has changed", output,
                        fmt::join(old, ", ")));
}
