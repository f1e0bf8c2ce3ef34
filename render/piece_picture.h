// The picture of a piece that was played, from what was measured while it streamed through.
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
    std::vector<TonePoint> tone;  // that was asked for, none: no
    StreamFormat format;          // of the chain
    double seconds;
    Measured before, after;
};

// UsageError if the picture would take the place of the audio. role: "IN" or "OUT"; stream: the
// file that "-" stands for.
void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream);

// Draws onto the temporary file of `png`, which is to be called `picture`. The caller commits it.
void DrawPiece(Piece piece, const EffectLibrary& library, const std::string& picture,
               const OutputFile& png);
