// Draws the picture of a piece from what was measured while the piece was played.
#pragma once
#include <string>
#include <vector>

#include "client/settings.h"
#include "client/stream.h"
#include "client/tone.h"
#include "render/audio/output_file.h"
#include "render/audio/stream_meter.h"
#include "render/effect_library.h"

struct Piece {
    std::string title, preset;
    Settings settings;
    std::vector<TonePoint> tone;  // that was asked for; empty if none was
    StreamFormat format;          // of the chain
    double seconds;
    Measured before, after;
};

// Throws UsageError if the picture would overwrite the audio. role: "IN" or "OUT". stream: the file
// that "-" stands for.
void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream);

// Draws to the temporary file of `png`, whose final name is `picture`. The caller commits it.
void DrawPiece(Piece piece, const EffectLibrary& library, const std::string& picture,
               const OutputFile& png);
