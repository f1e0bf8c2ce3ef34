// Sound through one instance of the chain, from a reader to a writer, measured on both sides.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/settings.h"
#include "render/aligned_stream.h"
#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/pcm_source.h"
#include "render/effect_library.h"
#include "render/progress.h"
#include "render/report.h"
#include "render/settings_options.h"

// To solve for the output gain, which is job.settings' business no more.
struct MatchWish {
    std::optional<double> lufs;  // none: as loud as the source
};

// How near the result has to come.
constexpr double kMatchToleranceLu = 0.3;

// The gain that was found.
struct Match {
    double wantedLufs;
    double gain;
};

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output, "" is nowhere: for the picture alone
    std::string picture;  // PNG file to draw besides, "" for none
    std::string preset;
    Settings settings;
    ToneWish tone;
    std::optional<MatchWish> match;
    std::optional<double> ceilingDb;  // true peak that the output has to stay below, in dBTP
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool coldStart = false;  // as the framework starts, its fade-in included
    bool dither = true;
    bool strictRate = false;
    bool keepTimes = false;
    bool onlyWhole = false;          // write nothing if the source is damaged
    std::optional<FileTimes> times;  // that the output gets; none: the present
    bool showProgress = false;
    // For the report; a picture needs everything.
    Metering metering = Metering::kEverything;
};

// What is played in runs, each of which is one rate, one channel count and one instance of the
// chain. A file is one run. Each function opens a run anew, from its beginning.
using Runs = std::vector<std::function<std::unique_ptr<SampleReader>()>>;

// Writes nothing: for what is only measured.
class NoWriter final : public AudioWriter {
public:
    void Write(std::span<const int16_t> /*samples*/) override {}
    void Close() override {}
    std::string ClosedPath() const override { return ""; }
    void Commit() override {}
    std::vector<std::string> NotKept() const override { return {}; }
};

// Throws Failure. One thread.
class ChainRun {
public:
    // settings: those of the job once tone and gain are found. Everything must outlive the run.
    ChainRun(const RenderJob& renderJob, const EffectLibrary& library, const Settings& settings,
             SampleReader& sampleReader, StreamMeter& before);

    // Plays all that the reader has. Call it once. after: measures what is written. gain: as
    // PcmSink has it.
    void Play(AudioWriter& writer, uint32_t outputRateHz, StreamMeter& after, double gain = 1);

    // Of the chain.
    const StreamFormat& Format() const { return format; }
    // After Play: adds what has happened to the report of one or several runs.
    void AddTo(Report* report) const;

private:
    const RenderJob& job;
    SampleReader& reader;
    StreamFormat format;
    uint32_t delayFrames;
    AlignedStream chain;
    PcmSource source;
    uint64_t clippedOut = 0;
    double elapsedSeconds = 0;
};

// `frames` at one rate, rounded to frames at the other.
uint64_t AtRate(uint64_t frames, uint32_t rateHz, uint32_t otherRateHz);

// The rate that the output gets: the file's, or else one that its format takes.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz);

// Throws Failure if the effect can't take as many channels, or if the sampling rate is no rate of
// sound: below 1000 Hz or above 768000 Hz.
void CheckFormat(const std::string& input, const SampleReader& reader);

// The title that the file carries, else its name.
std::string TitleOf(const std::string& input, const AudioReader& reader);

// What is known before anything is played: rates, settings with tone and match, delay. Throws
// Failure for too many channels, and if the job forbids to resample and it would have to.
Report StartReport(const RenderJob& job, const std::optional<Match>& match,
                   const SampleReader& reader);

// Decodes a lossy output that has no name yet, and adds its true peak to the report of one or
// several files. The peak is NaN at a rate at which it can't be measured.
void AddDecodedPeak(const std::string& path, Report* report);

// Says how near the loudness has come, if it isn't near. match: what MatchPiece gave.
void NoteMatch(const std::optional<Match>& match, Report* report);

// Warns of tags that were lost, once the writer has committed.
void NoteTags(const std::string& output, const AudioWriter& writer, const AudioTags& tags,
              Report* report);
