// Plays sound through one instance of the chain, from a reader to a writer, and measures both
// sides.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/settings.h"
#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/pcm.h"
#include "render/effect_library.h"
#include "render/report.h"
#include "render/settings_options.h"

// The wanted loudness of the output, for which an output gain is found. The output gain of
// job.settings is then ignored.
struct MatchWish {
    std::optional<double> lufs;  // nothing: the loudness of the source
};

// The loudness may differ this much from the wanted one before a note says so.
constexpr double kMatchToleranceLu = 0.3;

// The output gain that was found for a wanted loudness.
struct Match {
    double wantedLufs;
    double gain;
};

// Says whether an output gets tags with the gain for players.
enum class GainTags {
    // It gets them if it is measured, and if its format is for players or the source had such tags.
    kIfMeasured,
    kAlways,  // if its format has tags; the output is measured for them
    kNever
};

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output; "" if only the picture is wanted
    std::string picture;  // the PNG file to draw; "" if none is wanted
    std::string preset;
    Settings settings;
    ToneWish tone;
    std::optional<MatchWish> match;
    std::optional<double> ceilingDb;  // limit of the output's true peak, in dBTP
    GainTags gainTags = GainTags::kIfMeasured;
    std::optional<double> quality;  // as in AudioFormat
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool coldStart = false;  // starts as the framework does, with its fade-in
    bool dither = true;
    bool strictRate = false;
    bool keepTimes = false;
    bool onlyWhole = false;          // writes nothing if the source is damaged
    std::optional<FileTimes> times;  // the output's times; nothing: the present time
    bool showProgress = false;
    // Says what is measured for the report. For a picture, everything is measured.
    Metering metering = Metering::kEverything;
};

// A piece that is played in runs. A run has one rate, one channel count and one instance of the
// chain. A file is one run. Each function opens a run from its beginning.
using Runs = std::vector<std::function<std::unique_ptr<SampleReader>()>>;

// Writes nothing. It is for sound that is only measured.
class NoWriter final : public AudioWriter {
public:
    void Write(std::span<const int16_t> /*samples*/) override {}
    void Close() override {}
    std::string ClosedPath() const override { return ""; }
    void Commit() override {}
    std::vector<std::string> NotKept() const override { return {}; }
};

// Plays one run through one instance. The functions throw Failure. Use an object on one thread.
class ChainRun {
public:
    // `settings` are those of the job with the band levels and the output gain that were found.
    // `before` measures the input. All arguments must outlive the object.
    ChainRun(const RenderJob& renderJob, const EffectLibrary& library, const Settings& settings,
             SampleReader& sampleReader, StreamMeter& before);

    // Plays everything that the reader has. Call it once. `after` measures what is written. `gain`
    // is a linear gain that is applied after the chain.
    void Play(AudioWriter& writer, uint32_t outputRateHz, StreamMeter& after, double gain = 1);

    // Returns the format of the chain's samples.
    const StreamFormat& Format() const { return format; }
    // Adds the run's counts and damage to the report, which may be of several runs. Call it after
    // Play.
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

// Converts a number of frames from one rate to another, rounded to whole frames.
uint64_t AtRate(uint64_t frames, uint32_t rateHz, uint32_t otherRateHz);

// Returns the output's sampling rate. It is the source's rate if the output's format supports that.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz);

// Throws Failure if the source has more than two channels, or if its sampling rate is below 1000 Hz
// or above 768000 Hz.
void CheckFormat(const std::string& input, const SampleReader& reader);

// Returns the title from the file's tags. Without one, returns the file's name.
std::string TitleOf(const std::string& input, const AudioReader& reader);

// Returns what is known before anything is played: rates, settings with tone and match, and delay.
// Throws Failure as CheckFormat does, and if resampling is needed but the job forbids it.
Report StartReport(const RenderJob& job, const std::optional<Match>& match,
                   const SampleReader& reader);

// Decodes the lossy output at `path`, which is still a temporary file. If its true peak is larger
// than that in the report, stores it there. The peak is NaN if it can't be measured at this rate.
void AddDecodedPeak(const std::string& path, Report* report);

// Adds a note if the loudness differs from the wanted one by more than kMatchToleranceLu, or if
// nothing was matched. `match` is the result of MatchPiece.
void NoteMatch(const std::optional<Match>& match, Report* report);

// Returns whether the output gets new gain tags. `tags` are those of its source.
bool GetsGains(const RenderJob& job, const std::string& output, const AudioTags& tags);

// Says in the report which tags and marks the output can't keep. `gains` are the gains that are
// written, if any: old gain tags that are replaced aren't lost.
void NoteTags(const std::string& output, const AudioWriter& writer, const AudioTags& tags,
              const std::optional<Gains>& gains, Report* report);
