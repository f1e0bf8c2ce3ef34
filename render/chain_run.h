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

// The loudness for which the output gain is solved. The output gain of job.settings is then unused.
struct MatchWish {
    std::optional<double> lufs;  // none: the loudness of the source
};

// How near the result has to come to the wanted loudness.
constexpr double kMatchToleranceLu = 0.3;

// The output gain that was found.
struct Match {
    double wantedLufs;
    double gain;
};

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output; "" if only the picture is wanted
    std::string picture;  // PNG file that is drawn too, "" for none
    std::string preset;
    Settings settings;
    ToneWish tone;
    std::optional<MatchWish> match;
    std::optional<double> ceilingDb;  // limit of the output's true peak, in dBTP
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool coldStart = false;  // starts as the framework does, with its fade-in
    bool dither = true;
    bool strictRate = false;
    bool keepTimes = false;
    bool onlyWhole = false;          // writes nothing if the source is damaged
    std::optional<FileTimes> times;  // of the output; none: the present time
    bool showProgress = false;
    // What the report needs. A picture needs everything.
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

// Throws Failure. One thread.
class ChainRun {
public:
    // settings: those of the job once tone and gain are found. Everything must outlive the run.
    ChainRun(const RenderJob& renderJob, const EffectLibrary& library, const Settings& settings,
             SampleReader& sampleReader, StreamMeter& before);

    // Plays everything that the reader has. Call it once. after: measures what is written. gain:
    // linear; the sink applies it behind the chain.
    void Play(AudioWriter& writer, uint32_t outputRateHz, StreamMeter& after, double gain = 1);

    // Returns the format of the chain's samples.
    const StreamFormat& Format() const { return format; }
    // Adds what has happened to the report of one or several runs. Call it after Play.
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

// Returns the output's rate: the source's, or another one if the format doesn't take that.
uint32_t OutputRateHz(const std::string& output, uint32_t fileRateHz);

// Throws Failure if the effect can't take that many channels, or if the sampling rate is below
// 1000 Hz or above 768000 Hz.
void CheckFormat(const std::string& input, const SampleReader& reader);

// Returns the title from the file's tags. Without one, returns the file's name.
std::string TitleOf(const std::string& input, const AudioReader& reader);

// Returns what is known before anything is played: rates, settings with tone and match, and delay.
// Throws Failure for too many channels, and if the job forbids resampling that would be needed.
Report StartReport(const RenderJob& job, const std::optional<Match>& match,
                   const SampleReader& reader);

// Decodes a lossy output that has no name yet, and adds its true peak to the report of one or
// several files. The peak is NaN at a rate at which it can't be measured.
void AddDecodedPeak(const std::string& path, Report* report);

// Adds a note if the loudness is not near the wanted one. match: the result of MatchPiece.
void NoteMatch(const std::optional<Match>& match, Report* report);

// Warns of tags that were lost. Call it after the writer has committed.
void NoteTags(const std::string& output, const AudioWriter& writer, const AudioTags& tags,
              Report* report);
