// Plays hours of stereo audio through one instance at full speed and checks what they leave behind.
// 28 hours at 44100 Hz are more frames than 32 bits can count.
//
// usage: hours HOURS [chain|drift]
//
// Fails if memory grew, or if after a reset any sample differs from a new instance's. Also fails if
// the drift of the equalizer's running sums exceeds its bound, which is derived as follows.
//
// Each sum takes one float addition and one subtraction a frame. Their rounding errors stay in the
// sum until the next reset. For |x| <= 1, a sum over a half-width of D is at most 2 D, where floats
// lie D 2^-23 apart. Between addition and subtraction the sum holds one sample more; there floats
// lie twice as far apart. A rounding to steps of q has a variance of q^2 / 12.
//
// If the roundings are independent, as with noise and music, n frames leave a standard deviation of
// sqrt(5 n / 12) D 2^-23 in the sum. In the average, which is the sum divided by 2 D, that is
// sqrt(5 n / 12) 2^-24. The bound is six times that. With a periodic signal the roundings repeat
// too. Then all that is known is that each is at most half a step, and the bound is 1.5 n 2^-24.
//
// Once silence has filled the windows, the sums would be 0 without drift. So the output shows the
// drift of one average if the gains of all others cancel out.
#include <malloc.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "client/stderr_silencer.h"
#include "effects/fir_equalizer.h"
#include "tests/library_under_test.h"

namespace {

constexpr uint32_t kRate = 44100, kChannels = 2, kFrames = 1024;
constexpr size_t kBufferSamples = size_t{kChannels} * kFrames;

bool failed = false;

void Demand(bool holds, const char* what) {
    std::printf("  %-58s %s\n", what, holds ? "yes" : "NO");
    failed = failed || !holds;
}

size_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    size_t total = 0, resident = 0;
    statm >> total >> resident;
    return resident * 4096;
}

void CheckChain(uint64_t buffers) {
    std::puts("whole chain");
    constexpr size_t kInputBuffers = 499;
    std::vector<int16_t> in = NoiseSamples(kInputBuffers * kBufferSamples, 25000);
    std::vector<int16_t> out(kBufferSamples);
    const StderrSilencer muted;
    Instance instance;
    instance.Start(kRate, kChannels);
    const auto play = [&](uint64_t count) {
        for (uint64_t i = 0; i < count; ++i)
            if (instance.Process(&in[static_cast<size_t>(i % kInputBuffers) * kBufferSamples],
                                 out.data(), kFrames) != 0)
                failed = true;
    };
    play(100);
    const size_t residentBefore = ResidentBytes(), heapBefore = mallinfo2().uordblks;
    play(buffers);
    const size_t heapAfter = mallinfo2().uordblks, residentAfter = ResidentBytes();
    std::printf("  heap %zu bytes before, %zu after; resident %zu KiB, %zu KiB\n", heapBefore,
                heapAfter, residentBefore / 1024, residentAfter / 1024);
    Demand(heapAfter == heapBefore, "the heap is as large as before");
    Demand(residentAfter <= residentBefore + (64U << 10U), "and so is what is resident");

    in.resize(200 * kBufferSamples);
    instance.Reset();
    Instance fresh;
    fresh.Start(kRate, kChannels);
    Demand(instance.Run(in, kFrames, kChannels) == fresh.Run(in, kFrames, kChannels),
           "after a reset every bit is a new instance's");
}

// Checks the drift with one signal. `next` returns the signal's next sample, which goes to both
// channels. `periodic` chooses the bound.
template <typename Next>
void CheckDrift(const char* name, uint64_t buffers, bool periodic, Next next) {
    FIREqualizer_R32R32 equalizer;
    equalizer.SetEnable(true);
    std::vector<float> buffer(kBufferSamples);
    for (uint64_t i = 0; i < buffers; ++i) {
        for (size_t n = 0; n < kBufferSamples; n += kChannels) buffer[n] = buffer[n + 1] = next();
        equalizer.Process(buffer.data(), kFrames);
    }
    const std::vector<float> silence(kBufferSamples);
    buffer = silence;
    equalizer.Process(buffer.data(), kFrames);
    double largest = 0;
    std::printf("  %s:", name);
    for (int k = 0; k < 9; ++k) {
        // With a gain of 0 for the bands above the average of half-width 2^k and of 1 for those
        // below, the output is that average.
        for (int band = 0; band < 10; ++band)
            equalizer.SetBandLevel(band, 9 - band <= k ? -1.0F : 0.0F);
        float left[kChannels] = {};
        equalizer.Process(left, 1);
        std::printf(" %.1e", static_cast<double>(left[0]));
        largest = std::max(largest, std::fabs(static_cast<double>(left[0])));
    }
    const double frames = static_cast<double>(buffers) * kFrames;
    const double bound = (periodic ? 1.5 * frames : 6 * std::sqrt(5 * frames / 12)) * 0x1p-24;
    std::printf("\n    largest %.2e, bound %.2e\n", largest, bound);
    Demand(largest <= bound, "the drift of every average is within its bound");
    equalizer.Reset();
    buffer = silence;
    equalizer.Process(buffer.data(), kFrames);
    Demand(buffer == silence, "a reset leaves none of it");
}

void CheckDrifts(uint64_t buffers) {
    std::puts("equalizer, drift of the averages of 2, 4 ... 512 samples");
    uint64_t state = 88172645463325252U;  // G. Marsaglia, Xorshift RNGs
    const auto uniform = [&state] {       // in [0, 1)
        state ^= state << 13U;
        state ^= state >> 7U;
        state ^= state << 17U;
        return static_cast<float>(state >> 40U) * 0x1p-24F;
    };
    uint32_t n = 0;
    const auto tone = [&n] {
        n = (n + 1) % 441;
        return static_cast<float>(std::lrint(29000 * std::sin(n * 2 * 3.14159265 / 44.1))) *
               0x1.0002p-15F;
    };
    CheckDrift("noise", buffers, false, [&] { return 2 * uniform() - 1; });
    CheckDrift("noise from 0.5 to 1, where sums round most coarsely", buffers, false,
               [&] { return 0.5F + 0.5F * uniform(); });
    CheckDrift("16-bit tone of 1000 Hz, repeating every 441 samples", buffers, true, tone);
}

}  // namespace

int main(int argc, char** argv) {
    const double hours = argc >= 2 ? std::strtod(argv[1], nullptr) : 0;
    const std::string part = argc >= 3 ? argv[2] : "";
    if (!(hours > 0 && hours < 1000)) {
        std::fputs("usage: hours HOURS [chain|drift]\n", stderr);
        return 2;
    }
    const auto buffers = static_cast<uint64_t>(std::ceil(hours * 3600 * kRate / kFrames));
    std::printf("%g hours, %llu frames\n", hours,
                static_cast<unsigned long long>(buffers) * kFrames);
    if (part != "drift") CheckChain(buffers);
    if (part != "chain") CheckDrifts(buffers);
    return failed ? 1 : 0;
}
