// Measures how long the audio thread can be kept waiting: the cost of every command, and of process
// calls with the worst input and settings. The unit is one process call of 1024 frames of
// full-scale noise (44100 Hz, stereo, every processor on).
//
// Prints one line for each case: the least processor time of several repetitions, as a ratio. Under
// `valgrind --tool=callgrind --collect-atstart=no` it dumps each case's instructions instead, which
// are the same in every run. scripts/worst-cases.sh runs it both ways.
#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <limits>
#include <optional>

#include "client/stderr_silencer.h"
#include "tests/library_under_test.h"

namespace {

constexpr uint32_t kFrames = 1024;
constexpr int kCalls = 385;  // a whole number of the enhancer's blocks: 385 * 1024 = 512 * 770
constexpr size_t kSamples = size_t{2} * kFrames;
constexpr int kWarmCalls = 110;  // the playback gain fades in over 100
constexpr int kFullScale = 32767;

double ProcessorSeconds() {
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double unit = 0;  // seconds of one process call of noise, the first case

// Runs `prepare` and then `call`, several times, and measures `call` alone. `call` does `parts`
// equal pieces of work, and the printed ratio is that of one.
template <typename Prepare, typename Call>
void Measure(const char* name, int parts, Prepare prepare, Call call) {
    const int repetitions = RUNNING_ON_VALGRIND != 0 ? 1 : 9;
    double least = std::numeric_limits<double>::max();
    for (int i = 0; i < repetitions; ++i) {
        prepare();
        const double begin = ProcessorSeconds();
        CALLGRIND_TOGGLE_COLLECT;
        call();
        CALLGRIND_TOGGLE_COLLECT;
        least = std::min(least, ProcessorSeconds() - begin);
        CALLGRIND_DUMP_STATS_AT(name);
    }
    least /= parts;
    if (unit == 0) unit = least;
    if (RUNNING_ON_VALGRIND == 0) std::printf("%s\t%.3f\n", name, least / unit);
}

class Stream {
public:
    Instance instance;

    explicit Stream(int amplitude) : in(NoiseSamples(3 * kSamples, amplitude)) {
        instance.Start(44100, 2);
        Play(kWarmCalls);
    }
    void Play(int calls) {
        for (int i = 0; i < calls; ++i) {
            const size_t at = static_cast<size_t>(i) * 2 * 101 % (2 * kSamples);
            instance.Process(in.data() + at, out.data(), kFrames);
        }
    }
    void Set(int amplitude) { in = NoiseSamples(3 * kSamples, amplitude); }

private:
    std::vector<int16_t> in, out = std::vector<int16_t>(kSamples);
};

// Measures the process calls of a running stream after `change` has changed it.
template <typename Change>
void MeasureStream(const char* name, Change change) {
    std::optional<Stream> stream;
    Measure(
        name, kCalls,
        [&] {
            stream.emplace(kFullScale);
            change(*stream);
            stream->Play(kWarmCalls);
        },
        [&] { stream->Play(kCalls); });
}

}  // namespace

int main() {
    const StderrSilencer muted;
    MeasureStream("process, noise", [](Stream&) {});
    MeasureStream("process, silence", [](Stream& s) {
        s.Set(0);
        s.instance.Reset();
    });
    MeasureStream("process, silence after sound: decay into denormals",
                  [](Stream& s) { s.Set(0); });
    MeasureStream("process, noise of one unit", [](Stream& s) { s.Set(1); });
    MeasureStream("process, noise, the playback gain's limiter at work too", [](Stream& s) {
        s.instance.Set(PARAM_PLAYBACKGAIN_VOLUME, {12700});
        s.instance.Set(PARAM_PLAYBACKGAIN_MAXGAIN, {12700});
    });
    MeasureStream("process, every parameter the least int32",
                  [](Stream& s) { s.instance.SetEveryValue(INT32_MIN); });
    MeasureStream("process, every parameter the largest int32",
                  [](Stream& s) { s.instance.SetEveryValue(INT32_MAX); });

    Stream stream(kFullScale);
    Instance& instance = stream.instance;
    const auto play = [&] { stream.Play(3); };
    int32_t mode = 0;
    Measure("reset", 1, play, [&] { instance.Reset(); });
    Measure("disable", 1, play, [&] { instance.Disable(); });
    Measure(
        "enable", 1, [&] { instance.Disable(); }, [&] { instance.Enable(); });
    Measure(
        "mode change", 1, [&] { mode = 1 - mode; }, [&] { instance.Set(PARAM_SET_MODE, {mode}); });
    Measure("a level", 1, play, [&] { instance.Set(PARAM_EQUALIZER_BANDLEVEL, {3, 20}); });
    Measure("low contour", 1, play, [&] { instance.Set(PARAM_ENHANCER_LOCONTOUR, {90}); });
    Measure("configure, nothing new", 1, play, [&] { instance.Configure(44100, 2); });
    Measure(
        "configure, other rate", 1, [&] { instance.Configure(44100, 2); },
        [&] { instance.Configure(48000, 2); });
    Measure(
        "configure, other rate and channels", 1, [&] { instance.Configure(44100, 2); },
        [&] { instance.Configure(48000, 1); });
    std::optional<Instance> other;
    Measure(
        "create", 1, [&] { other.reset(); }, [&] { other.emplace(); });
    return 0;
}
