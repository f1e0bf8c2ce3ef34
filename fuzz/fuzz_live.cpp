// Fuzz target: a running stream whose host changes everything at any time.
//
// An input begins with the sampling rate (a byte: a usual rate, or two more bytes). Then come
// calls, each a byte and its arguments:
//
//   0, 1  process   frames (two bytes, modulo 1500), what comes in (bits 0, 1) and where the output
//                   goes (bits 2, 3)
//   2  set          control (a byte), then the value: a byte that chooses a usual one, or a double
//   3  bypass, low latency: bits 0 and 1
//   4  flush
//   5  settle
//
// Two streams get the same calls. One of them gets its frames in pieces, and must give the same
// bits.
//
// Run it with scripts/fuzz.sh.
#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "fuzz/fuzz_input.h"
#include "live/live_stream.h"

namespace {

constexpr uint32_t kMostFrames = 12000;  // of an input
constexpr double kSpecial[] = {0,    1,       -1,       0.5,      2,   100,
                               1e30, DBL_MAX, -DBL_MAX, INFINITY, NAN, 0.9999};

using Planes = std::vector<float>;  // both channels, one after the other

struct Host {
    explicit Host(uint32_t rateHz)
        : whole(std::make_unique<LiveStream>(rateHz)), cut(std::make_unique<LiveStream>(rateHz)) {
        const bool isRefused = rateHz < kLowestRateHz || rateHz > kHighestRateHz;
        Demand((whole->Refused() != nullptr) == isRefused, "the library's rates");
    }

    template <typename Call>
    void Both(Call call) {
        call(*whole);
        call(*cut);
    }

    void Set(FuzzInput& input) {
        const size_t control = input.Take<uint8_t>() % kControls.size();
        const uint8_t choice = input.Take<uint8_t>();
        const double value = choice < std::size(kSpecial) ? kSpecial[choice] : input.Take<double>();
        Both([&](LiveStream& stream) { stream.Set(control, value); });
    }

    void Process(FuzzInput& input) {
        const size_t frames = input.Take<uint16_t>() % 1500U;
        const unsigned how = input.Take<uint8_t>();
        if (frames == 0 || processed + frames > kMostFrames) return;
        processed += frames;
        Planes in(2 * frames);
        for (float& sample : in) {
            const auto random = static_cast<float>(static_cast<int16_t>(Random(&noise))) / 32768;
            const float choices[] = {random, 0, random * 4, random < 0 ? NAN : FLT_MAX};
            sample = choices[how & 3U];
            if (std::isfinite(sample)) loudest = std::max(loudest, std::fabs(sample));
        }
        const Planes got = Run(whole.get(), in, how, frames), pieces = Run(cut.get(), in, how, 0);
        Demand(std::memcmp(got.data(), pieces.data(), got.size() * sizeof(float)) == 0,
               "the same bits for any pieces");
        for (const float sample : got)
            Demand(std::fabs(sample) <= loudest * (1 + 1e-6F),
                   "no louder than full scale or input");
        const LiveStream::Levels levels = whole->Meters();
        Demand(levels.sourceDb >= -100 && levels.resultDb >= -100 && std::isfinite(levels.gainDb),
               "levels");
        Demand(levels.gainDb == 0 || levels.gainDb == levels.resultDb - levels.sourceDb, "gain");
        Demand(whole->LatencyFrames() <= 4096, "a latency that the stream remembers");
    }

    // Returns result and source. `piece` is the size of the pieces in frames; 0 stands for odd
    // sizes.
    Planes Run(LiveStream* stream, const Planes& in, unsigned how, size_t piece) const {
        const size_t frames = in.size() / 2;
        // bit 2: the result goes where the input was; bit 3: the source isn't wanted
        const bool inPlace = (how & 4U) != 0, wantsSource = (how & 8U) == 0;
        Planes from = in, into(2 * frames), past(2 * frames);
        uint32_t sizes = 0x12345;
        for (size_t done = 0, count = 0; done < frames; done += count) {
            count = std::min(frames - done, piece != 0 ? piece : Random(&sizes) % 300);
            float* const start = from.data() + done;
            float* const target = inPlace ? start : into.data() + done;
            float* const source = wantsSource ? past.data() + done : nullptr;
            const float* const ins[2] = {start, start + frames};
            float* const results[2] = {target, target + frames};
            float* const sources[2] = {source, wantsSource ? source + frames : nullptr};
            stream->Process(ins, results, sources, count);
        }
        Planes all = inPlace ? from : into;
        all.insert(all.end(), past.begin(), past.end());
        return all;
    }

    std::unique_ptr<LiveStream> whole, cut;
    uint32_t noise = 0x2545F491;
    size_t processed = 0;
    float loudest = 1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    constexpr uint32_t kRates[] = {44100, 48000, 32000, 37800};
    const size_t rate = input.Take<uint8_t>();
    Host host(rate < 200 ? kRates[rate % 4] : input.Take<uint16_t>());
    bool hasSettled = false;
    while (!input.Empty()) {
        const unsigned call = input.Take<uint8_t>() % 6;
        if (call <= 1) host.Process(input);
        if (call == 2) host.Set(input);
        if (call == 3) {
            const unsigned bits = input.Take<uint8_t>();
            host.Both([bits](LiveStream& stream) {
                stream.SetBypass((bits & 1U) != 0);
                stream.SetLowLatency((bits & 2U) != 0);
            });
        }
        if (call == 4) host.Both([](LiveStream& stream) { stream.Flush(); });
        if (call == 5 && !std::exchange(hasSettled, true))  // takes longer than anything else
            host.Both([](LiveStream& stream) { stream.Settle(); });
    }
    return 0;
}
