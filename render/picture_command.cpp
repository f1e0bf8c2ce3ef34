#include "render/picture_command.h"

#include "client/settings_text.h"
#include "render/aligned_stream.h"
#include "render/audio/pcm_source.h"
#include "render/failure.h"
#include "render/input.h"
#include "render/pictures/picture.h"

PictureCommand::PictureCommand(CLI::App& program)
    : Command(program, "picture", "draw an audio file before and after") {
    app.add_option("IN", input, "audio file; - is standard input")->required();
    app.add_option("OUT", picture, "PNG file")->required();
    app.add_flag("--no-dither", noDither, "round to 16 bits without dither");
    common.AddTo(app);
}

void PictureCommand::Run() {
    const Settings settings = common.settings.Resolve();
    CheckPictureName(picture, "IN", input, "/dev/stdin");
    OutputFile::CheckName(picture, common.overwrite);
    common.settings.CheckSave({input, picture}, common.overwrite);
    const EffectLibrary library = common.library.Open();
    AudioReader reader(input);
    CheckChannels(input, reader);
    const uint32_t chainRateHz = ChainRateHz(reader.RateHz());
    PcmSource source(reader, chainRateHz, !noDither, false);
    std::vector<int16_t> pcm, whole;
    while (source.Read(&pcm)) whole.insert(whole.end(), pcm.begin(), pcm.end());
    OutputFile png(picture, common.overwrite);
    DrawBeforeAndAfter({TitleOf(input, reader),
                        common.settings.PresetName(),
                        settings,
                        {chainRateHz, reader.Channels(), common.bufferFrames}},
                       library, whole, picture, png);
    png.Commit();
    common.settings.Save(common.overwrite);
}

void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream) {
    if (audio == picture || AreOneFile(audio == "-" ? stream : audio, picture))
        throw UsageError(std::string(role) + " and the picture are the same file");
}

namespace {

std::vector<float> Floats(const std::vector<int16_t>& pcm) {
    std::vector<float> floats(pcm.begin(), pcm.end());
    for (float& sample : floats) sample /= 32768.0f;
    return floats;
}

}  // namespace

void DrawBeforeAndAfter(const BeforeAndAfter& piece, const EffectLibrary& library,
                        const std::vector<int16_t>& pcm, const std::string& picture,
                        const OutputFile& png) {
    Settings withoutGain = piece.settings;
    withoutGain.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
    PictureInput input;
    input.title = piece.title;
    input.settings = piece.preset + ": " + Describe(piece.settings);
    input.rateHz = piece.format.rateHz;
    input.channels = static_cast<int>(piece.format.channels);
    input.chain = AlignedPlayer(library, piece.settings, piece.format);
    input.chainWithoutPlaybackGain = AlignedPlayer(library, withoutGain, piece.format);
    input.before = Floats(pcm);
    input.after = Floats(input.chain(pcm));
    std::string error;
    if (!DrawPicture(input, png.TemporaryPath(), &error))
        throw Failure(picture + " cannot be drawn: " + error);
}
