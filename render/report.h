// Tells what a render did, for people and for programs.
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

// How an output was brought below a ceiling.
struct CeilingResult {
    double wantedDb;   // in dBTP
    double gainDb;     // of the whole output, at most 0
    double reachedDb;  // the true peak; of a lossy output, after decoding
    uint32_t outputs;  // how often the output was made
};

struct Report {
    std::string input, output;
    std::string album;  // title from the tags, "" for none
    std::vector<TrackReport>
        tracks;  // empty for a single file; the other members describe all tracks as one piece
    std::string preset;
    Settings settings;                  // as they were played
    std::optional<ToneFit> tone;        // if one was asked for
    std::optional<double> matchedLufs;  // the loudness for which the output gain was solved
    uint32_t rateHz, channels;
    uint32_t chainRateHz, outputRateHz;
    uint64_t frames;        // of the input
    double seconds;         // of the input
    double elapsedSeconds;  // the time it took to play them
    uint32_t bufferFrames;
    uint32_t delayFrames;  // of the chain, at its rate
    bool delayRemoved;
    uint64_t settlingFrames;  // of silence before the first frame, at the chain's rate
    bool dithered;            // the input, to the 16 bits that the chain takes
    uint64_t clippedIn;       // samples of the input beyond full scale
    uint64_t notNumbers;      // samples of the input that were NaN or infinite and count as silence
    uint64_t clippedOut;      // samples of the result beyond full scale after resampling
    Loudness before, after;
    std::optional<double> decodedPeakDb;   // true peak of a lossy output after decoding
    std::optional<CeilingResult> ceiling;  // if one was asked for
    // Further facts. --quiet silences them.
    std::vector<std::string> notes;
    // Losses of sound or tags, apart from those of a damaged source. PrintWarnings prints them even
    // with --quiet.
    std::vector<std::string> warnings;
    // What is wrong with the source, a phrase for each fault; empty if the source is whole. It is
    // known before the output gets its name. The command ends with DamagedSource.
    std::vector<std::string> damage;
    std::string missing;  // what could not be made beside the audio, and why; "" if nothing failed
};

// Returns the report in several lines, each with its line end.
std::string TextOf(const Report& report);

// Prints the warnings to standard error, one line each.
void PrintWarnings(const Report& report);

// Returns "song.wav is damaged: " and what is wrong with it, in one line.
std::string DamageText(const std::string& input, const std::vector<std::string>& damage);

// Returns one JSON object. Levels that are minus infinity or were not measured are null.
std::string JsonOf(const Report& report);
