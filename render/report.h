// What a render did, for people and for programs.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/settings.h"
#include "client/tone.h"
#include "render/audio/loudness.h"

// A track of an album.
struct TrackReport {
    std::string input;   // below the album's folder
    std::string output;  // path
    uint32_t rateHz, channels;
    uint64_t frames;  // of the input
};

// How an output came to stay below a ceiling.
struct CeilingResult {
    double wantedDb;   // in dBTP
    double gainDb;     // of the whole output, at most 0
    double reachedDb;  // the true peak, of a lossy output decoded
    uint32_t outputs;  // that were made until the peak was below
};

struct Report {
    std::string input, output;
    std::string album;  // title from the tags, "" for none
    std::vector<TrackReport>
        tracks;  // none for a single file; else all else is said of them as one
    std::string preset;
    Settings settings;                  // as they were played
    std::optional<ToneFit> tone;        // if one was asked for
    std::optional<double> matchedLufs;  // what the output gain was solved for
    uint32_t rateHz, channels;
    uint32_t chainRateHz, outputRateHz;
    uint64_t frames;        // of the input
    double seconds;         // likewise
    double elapsedSeconds;  // that it took to play them
    uint32_t bufferFrames;
    uint32_t delayFrames;  // of the chain, at its rate
    bool delayRemoved;
    uint64_t settlingFrames;  // of silence before the first frame, at the chain's rate
    bool dithered;
    uint64_t clippedIn;   // samples of the input beyond full scale
    uint64_t notNumbers;  // samples on the way in that were NaN or infinite, taken for silence
    uint64_t clippedOut;  // samples that resampling the result took beyond full scale
    Loudness before, after;
    std::optional<double> decodedPeakDb;   // of a lossy output, what its file decodes to
    std::optional<CeilingResult> ceiling;  // if one was asked for
    // Further facts of the report. --quiet silences them.
    std::vector<std::string> notes;
    // Losses of sound or tags beside those of a damaged source. PrintWarnings says them even with
    // --quiet.
    std::vector<std::string> warnings;
    // What is wrong with the source, a phrase for each fault; empty if the source is whole. It is
    // known before the output gets its name. The command ends with DamagedSource.
    std::vector<std::string> damage;
    std::string missing;  // what could not be made beside the audio, and why; "" if all was
};

// Several lines, each with its line end.
std::string TextOf(const Report& report);

// Prints the warnings to standard error, one line each.
void PrintWarnings(const Report& report);

// "song.wav is damaged: " and what is wrong with it, in one line.
std::string DamageText(const std::string& input, const std::vector<std::string>& damage);

// One JSON object. Levels that are minus infinity or were not measured are null.
std::string JsonOf(const Report& report);
