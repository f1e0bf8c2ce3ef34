#include "client/stream.h"

#include <algorithm>
#include <limits>
#include <new>

namespace {
constexpr int32_t kStatusNoMemory = -12;
}

BlockStream::BlockStream(const audio_effect_library_t& library, const StreamFormat& streamFormat,
                         const Settings& settings)
    : instance(library),
      format(streamFormat),
      input(new (std::nothrow) int16_t[Samples()]()),
      output(new (std::nothrow) int16_t[Samples()]()) {
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
    const bool hasBuffers = input != nullptr && output != nullptr;
    if (!Took(hasBuffers ? kStatusOk : kStatusNoMemory, "allocate its buffers") ||
        !Took(instance.CreateStatus(), "create an instance") ||
        !Took(instance.Initialise(), "initialise") ||
        !Took(instance.Configure(format.rateHz, format.channels), "take the configuration"))
        return;
    for (const ParameterCommand& command : settings.Commands())
        if (!Took(instance.Set(command), "set a parameter")) return;
    // An instance whose memory was refused takes every command but is never ready.
    if (Took(instance.Enable(), "be enabled"))
        Took(instance.Get(PARAM_GET_READY) == 1 ? kStatusOk : kStatusNoMemory, "get ready");
}

void BlockStream::Restart(uint32_t bufferFrames) {
    format.bufferFrames = bufferFrames;
    Silence();
    instance.Reset();
}

size_t BlockStream::Fill(const int16_t* in, size_t frames) {
    const size_t taken = std::min(frames, format.bufferFrames - filled);
    if (input != nullptr)
        std::copy_n(in, taken * format.channels, &input[filled * format.channels]);
    filled += taken;
    return taken;
}

void BlockStream::RunIfFull() {
    if (filled < format.bufferFrames) return;
    filled = 0;
    if (refused != nullptr ||
        !Took(instance.Process(input.get(), output.get(), format.bufferFrames), "process"))
        Silence();
}

void BlockStream::Silence() {
    if (output != nullptr) std::fill_n(output.get(), Samples(), int16_t{0});
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
        const size_t first = filled * format.channels;
        const size_t taken = Fill(in, frames);
        const size_t samples = taken * format.channels;
        if (output != nullptr)
            std::copy_n(&output[first], samples, out);
        else
            std::fill_n(out, samples, int16_t{0});
        RunIfFull();
        in += samples;
        out += samples;
        frames -= taken;
    }
}

PieceStream::PieceStream(const audio_effect_library_t& library, const Settings& settings,
                         const StreamFormat& streamFormat, const Alignment& alignment)
    : format(streamFormat),
      keepDelay(alignment.keepsDelay),
      delaySamples(uint64_t{DelayFrames(settings, format.bufferFrames)} * format.channels),
      skipSamples(keepDelay ? 0 : uint64_t{StreamDelayFrames(settings)} * format.channels),
      buffered(BufferingFrames(settings, format.bufferFrames) > 0),
      buffering(format.bufferFrames),
      stream(library, format, settings) {
    if (!alignment.startsCold && Refused() == nullptr)
        Settle(BufferingFrames(settings, format.bufferFrames));
}

// Processes silence until the playback gain has settled and the enhancer has returned all its
// silent buffers, `silentFrames` frames. From then on the delay stays the same.
void PieceStream::Settle(uint32_t silentFrames) {
    const std::vector<int16_t> silence(size_t{format.bufferFrames} * format.channels);
    const uint64_t wanted = FramesToSettle(format.rateHz, format.bufferFrames);
    uint32_t silent = 0;
    while (settlingFrames < wanted || silent < silentFrames) {
        stream.Put(silence.data(), format.bufferFrames);
        settlingFrames += format.bufferFrames;
        if (buffered && !buffering.Deliver()) silent += format.bufferFrames;
    }
    skipSamples = keepDelay ? 0 : delaySamples;
}

void PieceStream::Process(std::span<const int16_t> in, std::vector<int16_t>* out) {
    samplesIn += in.size();
    Feed(in, std::numeric_limits<uint64_t>::max(), out);
}

void PieceStream::Finish(std::vector<int16_t>* out) {
    const uint64_t wanted = samplesIn + (keepDelay ? delaySamples : 0);
    const std::vector<int16_t> silence(size_t{format.bufferFrames} * format.channels);
    while (samplesOut < wanted && !stream.Buffer().empty()) Feed(silence, wanted - samplesOut, out);
}

void PieceStream::Feed(std::span<const int16_t> in, uint64_t mostSamples,
                       std::vector<int16_t>* out) {
    while (!in.empty()) {
        const size_t taken = stream.Put(in.data(), in.size() / format.channels);
        in = in.subspan(taken * format.channels);
        if (stream.HasRun()) Append(mostSamples, out);
    }
}

void PieceStream::Append(uint64_t mostSamples, std::vector<int16_t>* out) {
    const bool delivered = !buffered || buffering.Deliver();
    if (!delivered && !keepDelay) return;
    const std::span<const int16_t> buffer = stream.Buffer();
    const auto skip = static_cast<size_t>(std::min<uint64_t>(skipSamples, buffer.size()));
    skipSamples -= skip;
    const auto count = static_cast<size_t>(std::min<uint64_t>(mostSamples, buffer.size() - skip));
    const auto first = buffer.begin() + static_cast<ptrdiff_t>(skip);
    out->insert(out->end(), first, first + static_cast<ptrdiff_t>(count));
    samplesOut += count;
}
