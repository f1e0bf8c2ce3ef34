#include "client/stream.h"

#include <algorithm>

BlockStream::BlockStream(const audio_effect_library_t& library, const StreamFormat& streamFormat,
                         const Settings& settings)
    : instance(library),
      format(streamFormat),
      input(size_t{format.bufferFrames} * format.channels),
      output(input.size()) {
    Start(settings);
}

bool BlockStream::Took(int32_t answer, const char* what) {
    if (refused == nullptr && answer != kStatusOk) {
        refused = what;
        status = answer;
    }
    return refused == nullptr;
}

void BlockStream::Start(const Settings& settings) {
    if (!Took(instance.CreateStatus(), "create an instance") ||
        !Took(instance.Initialise(), "initialise") ||
        !Took(instance.Configure(format.rateHz, format.channels), "take the configuration"))
        return;
    for (const ParameterCommand& command : settings.Commands())
        if (!Took(instance.Set(command), "set a parameter")) return;
    Took(instance.Enable(), "be enabled");
}

void BlockStream::Restart(uint32_t bufferFrames) {
    format.bufferFrames = bufferFrames;
    input.resize(size_t{bufferFrames} * format.channels);
    output.assign(input.size(), 0);
    instance.Reset();
}

size_t BlockStream::Fill(const int16_t* in, size_t frames) {
    const size_t taken = std::min(frames, format.bufferFrames - filled);
    std::copy_n(in, taken * format.channels,
                input.begin() + static_cast<ptrdiff_t>(filled * format.channels));
    filled += taken;
    return taken;
}

void BlockStream::RunIfFull() {
    if (filled < format.bufferFrames) return;
    filled = 0;
    if (refused != nullptr ||
        !Took(instance.Process(input.data(), output.data(), format.bufferFrames), "process"))
        std::fill(output.begin(), output.end(), int16_t{0});
}

size_t BlockStream::Put(const int16_t* in, size_t frames) {
    const size_t taken = Fill(in, frames);
    RunIfFull();
    return taken;
}

void BlockStream::Process(const int16_t* in, int16_t* out, size_t frames) {
    while (frames > 0) {
        // The new frames go where these frames of the last output came from, so the delay is one
        // buffer.
        const auto last = output.begin() + static_cast<ptrdiff_t>(filled * format.channels);
        const size_t taken = Fill(in, frames);
        const size_t samples = taken * format.channels;
        std::copy_n(last, samples, out);
        RunIfFull();
        in += samples;
        out += samples;
        frames -= taken;
    }
}
