#include "client/piece_stream.h"

#include <algorithm>
#include <limits>

namespace {

// The playback gain fades in over a hundred calls. With short buffers these end before the gain has
// settled. It rises with a time constant of 0.4 s, so three seconds are enough.
constexpr uint32_t kSettlingBuffers = 100;
constexpr uint32_t kSettlingSeconds = 3;

}  // namespace

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
    uint32_t buffers = 0, silent = 0;
    while (buffers < kSettlingBuffers ||
           settlingFrames < uint64_t{kSettlingSeconds} * format.rateHz || silent < silentFrames) {
        stream.Put(silence.data(), format.bufferFrames);
        ++buffers;
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
