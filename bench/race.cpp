// Compares two builds of the library, driven through their records. Both get the same input under
// several settings, and every output sample is compared. They are timed in turns of some hundredths
// of a second, so that other work on the machine slows both alike.
//
// Prints a line for each setting. It has the processor time per frame of both, the median of the
// turns' ratios (below 1, the second is faster), and whether all samples were equal. Exits with 1
// if any sample differed.
#include <algorithm>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string>

#include "bench/music.h"
#include "client/library_file.h"
#include "client/stderr_silencer.h"
#include "tests/library_under_test.h"

namespace {

constexpr int kRepetitions = 5;
constexpr size_t kTurnSamples = size_t{4} * 4096;

struct Setting {
    const char* name;
    uint32_t rate, channels;
    uint32_t frames;  // in each call; 0: another number every time, 1 to 2048
    std::function<void(Instance&)> prepare;
};

void Everything(Instance& instance) {
    instance.SwitchEverythingOn();
}
// Sends values that no application would send.
void Extremes(Instance& instance) {
    instance.SwitchEverythingOn();
    for (int32_t band = 0; band < 10; ++band)
        instance.Set(PARAM_EQUALIZER_BANDLEVEL, {band, band % 2 == 0 ? INT32_MAX : -1000});
    for (int32_t id : {PARAM_PLAYBACKGAIN_VOLUME, PARAM_PLAYBACKGAIN_MAXGAIN,
                       PARAM_ENHANCER_PROCESS, PARAM_OUTPUT_GAIN})
        instance.Set(id, {INT32_MAX});
}

const Setting kSettings[] = {
    {"everything, 256 frames", 44100, 2, 256, Everything},
    {"everything, 1024 frames", 44100, 2, 1024, Everything},
    {"everything, 4096 frames", 44100, 2, 4096, Everything},
    {"everything, any frames, 48000 Hz", 48000, 2, 0, Everything},
    {"everything, mono, 32000 Hz", 32000, 1, 1024, Everything},
    {"playback gain", 44100, 2, 1024, [](Instance& i) { i.Set(PARAM_PLAYBACKGAIN_ENABLE, {1}); }},
    {"equalizer", 44100, 2, 1024, [](Instance& i) { i.Set(PARAM_EQUALIZER_ENABLE, {1}); }},
    {"enhancer", 44100, 2, 1024, [](Instance& i) { i.Set(PARAM_ENHANCER_ENABLE, {1}); }},
    {"limiters at work", 44100, 2, 1024, [](Instance& i) { i.Set(PARAM_LIMITER_GATE, {5}); }},
    {"limiters at rest", 44100, 2, 1024, [](Instance& i) { i.Set(PARAM_OUTPUT_GAIN, {1}); }},
    {"extreme values", 44100, 2, 1024, Extremes},
};

// Returns music, noise at full scale and silence. The noise makes the limiters work and fixed-point
// numbers wrap; in the silence the filters' states decay.
std::vector<int16_t> MakeInput() {
    std::vector<int16_t> input = ReadMusic();
    uint32_t random = 1;
    for (int i = 0; i < 20000; ++i) {
        random = random * 1664525U + 1013904223U;
        input.push_back(static_cast<int16_t>(random >> 16U));
    }
    input.resize(input.size() + 40000);
    return input;
}

double ThreadNanoseconds() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return 1e9 * static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec);
}

class Runner {
public:
    Runner(const audio_effect_library_t& library, const Setting& raced)
        : setting(raced), instance(library) {
        instance.Configure(setting.rate, setting.channels);
        setting.prepare(instance);
        instance.Enable();
    }
    // Plays samples `begin` to `end` of `input` into `output`. Returns the nanoseconds of processor
    // time that it took.
    double Play(const std::vector<int16_t>& input, size_t begin, size_t end) {
        output.assign(end - begin, 0);
        const double start = ThreadNanoseconds();
        for (size_t at = begin; at < end;) {
            const size_t left = (end - at) / setting.channels;
            const uint32_t frames = static_cast<uint32_t>(std::min<size_t>(NextFrames(), left));
            instance.Process(input.data() + at, output.data() + (at - begin), frames);
            at += size_t{frames} * setting.channels;
        }
        return ThreadNanoseconds() - start;
    }

    std::vector<int16_t> output;  // of the last turn

private:
    uint32_t NextFrames() {
        if (setting.frames != 0) return setting.frames;
        random = random * 1664525U + 1013904223U;
        return 1 + (random >> 21U);
    }

    const Setting& setting;
    Instance instance;
    uint32_t random = 1;
};

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

bool Race(const audio_effect_library_t& first, const audio_effect_library_t& second,
          const Setting& setting, const std::vector<int16_t>& input) {
    double times[2] = {};
    std::vector<double> ratios;
    size_t different = 0;
    {
        const StderrSilencer muted;
        Runner runners[] = {{first, setting}, {second, setting}};
        for (int repetition = 0; repetition < kRepetitions; ++repetition) {
            for (size_t at = 0; at < input.size(); at += kTurnSamples) {
                const size_t end = std::min(at + kTurnSamples, input.size());
                double turn[2];
                const size_t leader = ratios.size() % 2;
                for (const size_t i : {leader, 1 - leader}) {
                    turn[i] = runners[i].Play(input, at, end);
                    times[i] += turn[i];
                }
                ratios.push_back(turn[1] / turn[0]);
                for (size_t n = 0; n < end - at; ++n)
                    if (runners[0].output[n] != runners[1].output[n]) ++different;
            }
        }
    }
    const double frames =
        static_cast<double>(kRepetitions * input.size()) / static_cast<double>(setting.channels);
    std::printf("%-34s %8.1f %8.1f ns   ratio %.3f   ", setting.name, times[0] / frames,
                times[1] / frames, Median(ratios));
    if (different == 0)
        std::puts("equal");
    else
        std::printf("%zu samples differ\n", different);
    std::fflush(stdout);
    return different == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::fputs("usage: race LIBRARY [OTHER]\nOTHER: by default the build's own\n", stderr);
        return 2;
    }
    const LibraryFile first(argv[1]), second(argc == 3 ? argv[2] : ORVANE_LIBRARY_PATH);
    for (const LibraryFile* file : {&first, &second})
        if (file->Record() == nullptr) {
            std::fprintf(stderr, "race: %s\n", file->Fault().c_str());
            return 2;
        }
    const std::vector<int16_t> input = MakeInput();
    bool equal = true;
    for (const Setting& setting : kSettings)
        if (!Race(*first.Record(), *second.Record(), setting, input)) equal = false;
    return equal ? 0 : 1;
}
