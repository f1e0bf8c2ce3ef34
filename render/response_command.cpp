#include "render/response_command.h"

#include "client/settings_text.h"
#include "dsp/stream.h"
#include "render/aligned_stream.h"
#include "render/audio/output_file.h"
#include "render/failure.h"
#include "render/pictures/response.h"

ResponseCommand::ResponseCommand(CLI::App& program)
    : Command(program, "response", "draw the frequency response of equalizer and enhancer") {
    app.add_option("OUT", picture, "PNG file")->required();
    app.add_option("--rate", rateHz, "sampling rate")
        ->type_name("HZ")
        ->check(CLI::Range(kLowestRateHz, kHighestRateHz))
        ->capture_default_str();
    app.add_option("--channels", channels, "1 or 2")
        ->type_name("COUNT")
        ->check(CLI::Range(1U, kMaxChannels))
        ->capture_default_str();
    common.AddTo(app);
}

void ResponseCommand::Run() {
    Settings both = common.settings.Resolve();
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
    input.rateHz = rateHz;
    input.channels = static_cast<int>(channels);
    input.equalizerOnly = AlignedPlayer(library, equalizer, format);
    input.enhancerOnly = AlignedPlayer(library, enhancer, format);
    input.both = AlignedPlayer(library, both, format);
    OutputFile png(picture, common.overwrite);
    std::string error;
    if (!DrawResponse(input, png.TemporaryPath(), &error))
        throw Failure(picture + " cannot be drawn: " + error);
    png.Commit();
    common.settings.Save(common.overwrite);
}
