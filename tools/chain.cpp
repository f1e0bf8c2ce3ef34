#include "tools/chain.h"

#include <algorithm>

Chain::Chain(const EffectLibrary& library, const Settings& settings, const ChainFormat& chainFormat,
             bool keepsDelay)
    : format(chainFormat),
      keepDelay(keepsDelay),
      delaySamples(uint64_t{DelayFrames(settings, format.bufferFrames)} * format.channels),
      skipSamples(keepDelay ? 0 : uint64_t{StreamDelayFrames(settings)} * format.channels),
      buffered(settings.EnhancerOn()),
      buffering(format.bufferFrames),
      instance(library, format.rateHz, format.channels),
      inBuffer(size_t{format.bufferFrames} * format.channels),
      outBuffer(inBuffer.size()) {
    for (const ParameterWrite& write : settings.Writes()) instance.Set(write);
    instance.Enable();
}

void Chain::Process(std::span<const int16_t> in, std::vector<int16_t>* out) {
    samplesIn += in.size();
    while (!in.empty()) {
        const size_t count = std::min(in.size(), inBuffer.size() - filled);
        std::copy_n(in.begin(), count, inBuffer.begin() + static_cast<ptrdiff_t>(filled));
        filled += count;
        in = in.subspan(count);
        if (filled == inBuffer.size()) RunBuffer(out, inBuffer.size());
    }
}

void Chain::Finish(std::vector<int16_t>* out) {
    const uint64_t wanted = samplesIn + (keepDelay ? delaySamples : 0);
    while (samplesOut < wanted) {
        std::fill(inBuffer.begin() + static_cast<ptrdiff_t>(filled), inBuffer.end(), int16_t{0});
        RunBuffer(out, wanted - samplesOut);
    }
}

void Chain::RunBuffer(std::vector<int16_t>* out, uint64_t mostSamples) {
    filled = 0;
    instance.Process(inBuffer.data(), outBuffer.data(), format.bufferFrames);
    const bool delivered = !buffered || buffering.Deliver();
    if (!delivered && !keepDelay) return;
    const size_t skip = std::min<uint64_t>(skipSamples, outBuffer.size());
    skipSamples -= skip;
    const size_t count = std::min<uint64_t>(mostSamples, outBuffer.size() - skip);
    const auto first = outBuffer.begin() + static_cast<ptrdiff_t>(skip);
    out->insert(out->end(), first, first + static_cast<ptrdiff_t>(count));
    samplesOut += count;
}

std::vector<int16_t> RunChain(const EffectLibrary& library, const Settings& settings,
                              const ChainFormat& format, std::span<const int16_t> in) {
    Chain chain(library, settings, format, false);
    std::vector<int16_t> out;
    out.reserve(in.size());
    chain.Process(in, &out);
    chain.Finish(&out);
    return out;
}
