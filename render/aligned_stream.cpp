#include "render/aligned_stream.h"

#include <algorithm>
#include <limits>

#include "render/stderr_silencer.h"

AlignedStream::AlignedStream(const EffectLibrary& effectLibrary, const Settings& settings,
                             const StreamFormat& streamFormat, bool keepsDelay)
    : library(effectLibrary),
      format(streamFormat),
      keepDelay(keepsDelay),
      delaySamples(uint64_t{DelayFrames(settings, format.bufferFrames)} * format.channels),
      skipSamples(keepDelay ? 0 : uint64_t{StreamDelayFrames(settings)} * format.channels),
      buffered(settings.IsOn(PARAM_ENHANCER_ENABLE)),
      buffering(format.bufferFrames) {
    const StderrSilencer silencer(!library.ShowsLog());
    stream = std::make_unique<BlockStream>(library.Record(), format, settings);
    if (const char* const refused = stream->Refused()) {
        const int32_t status = stream->Status();
        stream.reset();  // while the log is silent
        Check(status, refused);
    }
}

AlignedStream::~AlignedStream() {
    const StderrSilencer silencer(!library.ShowsLog());
    stream.reset();
}

void AlignedStream::Process(std::span<const int16_t> in, std::vector<int16_t>* out) {
    samplesIn += in.size();
    Feed(in, std::numeric_limits<uint64_t>::max(), out);
}

void AlignedStream::Finish(std::vector<int16_t>* out) {
    const uint64_t wanted = samplesIn + (keepDelay ? delaySamples : 0);
    const std::vector<int16_t> silence(size_t{format.bufferFrames} * format.channels);
    while (samplesOut < wanted) Feed(silence, wanted - samplesOut, out);
}

void AlignedStream::Feed(std::span<const int16_t> in, uint64_t mostSamples,
                         std::vector<int16_t>* out) {
    while (!in.empty()) {
        const size_t taken = stream->Put(in.data(), in.size() / format.channels);
        in = in.subspan(taken * format.channels);
        if (stream->HasRun()) Append(mostSamples, out);
    }
}

void AlignedStream::Append(uint64_t mostSamples, std::vector<int16_t>* out) {
    if (stream->Refused() != nullptr) Check(stream->Status(), stream->Refused());
    const bool delivered = !buffered || buffering.Deliver();
    if (!delivered && !keepDelay) return;
    const std::vector<int16_t>& buffer = stream->Buffer();
    const size_t skip = std::min<uint64_t>(skipSamples, buffer.size());
    skipSamples -= skip;
    const size_t count = std::min<uint64_t>(mostSamples, buffer.size() - skip);
    const auto first = buffer.begin() + static_cast<ptrdiff_t>(skip);
    out->insert(out->end(), first, first + static_cast<ptrdiff_t>(count));
    samplesOut += count;
}

std::function<std::vector<int16_t>(const std::vector<int16_t>&)> AlignedPlayer(
    const EffectLibrary& library, const Settings& settings, const StreamFormat& format) {
    return [&library, settings, format](const std::vector<int16_t>& in) {
        AlignedStream stream(library, settings, format, false);
        std::vector<int16_t> out;
        out.reserve(in.size());
        stream.Process(in, &out);
        stream.Finish(&out);
        return out;
    };
}
