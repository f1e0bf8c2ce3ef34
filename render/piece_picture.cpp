#include "render/piece_picture.h"

#include <cmath>
#include <utility>

#include "client/settings_text.h"
#include "render/aligned_stream.h"
#include "render/failure.h"
#include "render/pictures/picture.h"

void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream) {
    if (audio == picture || AreOneFile(audio == "-" ? stream : audio, picture))
        throw UsageError("{} and the picture are the same file", role);
}

void DrawPiece(Piece piece, const EffectLibrary& library, const std::string& picture,
               const OutputFile& png) {
    Settings withoutGain = piece.settings;
    withoutGain.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
    PictureInput input;
    input.title = piece.title;
    input.settings = piece.preset + ": " + Describe(piece.settings);
    input.asked = piece.tone;
    for (TonePoint& point : input.asked)
        point.db += 20 * std::log10(piece.settings.Get(PARAM_OUTPUT_GAIN));
    input.seconds = piece.seconds;
    input.before = std::move(piece.before);
    input.after = std::move(piece.after);
    input.rateHz = piece.format.rateHz;
    input.channels = static_cast<int>(piece.format.channels);
    // Nothing is left to settle, and the noise is heard once before it is measured.
    input.chainWithoutPlaybackGain = AlignedPlayer(library, withoutGain, piece.format, true);
    input.enhances = piece.settings.IsOn(PARAM_ENHANCER_ENABLE);
    std::string error;
    if (!DrawPicture(input, png.TemporaryPath(), &error))
        throw Failure("{} cannot be drawn: {}", picture, error);
}
