#include "client/settings_text.h"
#include "dsp/samples.h"
#include "render/audio/output_file.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/effect_library.h"
#include "render/pictures/response.h"

namespace {

// Draws the frequency response of equalizer and enhancer.
class ResponseCommand final : public Command {
public:
    explicit ResponseCommand(Options& program);
    void Run() override;

private:
    void DrawBandsAlone() const;

    CommonOptions common;
    std::string picture;
    uint32_t rateHz = 44100;
    uint32_t channels = 2;
    bool bands = false;
};

ResponseCommand::ResponseCommand(Options& program)
    : Command(program, "response", "draw the frequency response of equalizer and enhancer") {
    options.Add("OUT", &picture, "PNG file").Required();
    options.Add("--rate", &rateHz, "sampling rate")
        .Type("HZ")
        .Within(kLowestRateHz, kHighestRateHz)
        .ShowDefault();
    options.Add("--channels", &channels, "1 or 2")
        .Type("COUNT")
        .Within(1U, kMaxChannels)
        .ShowDefault();
    options.AddFlag("--bands", &bands,
                    "draw what each equalizer band does alone, and ignore the settings");
    common.AddTo(options);
}

void ResponseCommand::DrawBandsAlone() const {
    const EffectLibrary library = common.library.Open();
    BandsInput input;
    input.rateHz = rateHz;
    input.chainWith = [&](const Settings::Levels& levels) {
        Settings settings;
        for (size_t band = 0; band < levels.size(); ++band) settings.SetBand(band, levels[band]);
        return AlignedPlayer(library, settings, {rateHz, 1, common.bufferFrames});
    };
    OutputFile png(picture, common.overwrite);
    DrawBands(input, {png.TemporaryPath(), picture});
    png.Commit();
}

void ResponseCommand::Run() {
    if (bands) return DrawBandsAlone();
    Settings settings = common.settings.Resolve();
    const ToneWish tone = common.settings.Tone();
    tone.Grant(rateHz, &settings);
    Settings both = settings;
    common.settings.CheckSave({picture}, common.overwrite);
    both.Set(PARAM_PLAYBACKGAIN_ENABLE, 0);
    both.Unset(PARAM_OUTPUT_GAIN);
    both.Unset(PARAM_LIMITER_GATE);
    Settings equalizer = both, enhancer = both;
    equalizer.Set(PARAM_ENHANCER_ENABLE, 0);
    enhancer.Set(PARAM_EQUALIZER_ENABLE, 0);

    const EffectLibrary library = common.library.Open();
    const StreamFormat format{rateHz, channels, common.bufferFrames};
    ResponseInput input;
    input.settings = Describe(both);
    input.asked = tone.curve.points;
    input.rateHz = rateHz;
    input.channels = static_cast<int>(channels);
    input.enhances = both.IsOn(PARAM_ENHANCER_ENABLE);
    input.equalizerOnly = AlignedPlayer(library, equalizer, format);
    input.enhancerOnly = AlignedPlayer(library, enhancer, format);
    input.both = AlignedPlayer(library, both, format);
    OutputFile png(picture, common.overwrite);
    DrawResponse(input, {png.TemporaryPath(), picture});
    png.Commit();
    common.settings.Save(settings, common.overwrite);
}

}  // namespace

std::unique_ptr<Command> MakeResponseCommand(Options& program) {
    return std::make_unique<ResponseCommand>(program);
}
