// Plays random histories through two builds of the library and compares every sample: all settings
// at random and changed at any time, gates and maximum gains lowered while samples wait, calls of
// any length, music, noise, tones, clicks and silence, resets and new configurations between them.
//
// usage: histories LIBRARY OTHER COUNT [FIRST SEED]
//
// Prints the frames that were compared and the seeds whose histories differ; exits with 1 if any.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <string>

#include "bench/music.h"
#include "client/library_file.h"
#include "tests/library_under_test.h"
#include "tests/muted_log.h"

namespace {

class History {
public:
    History(const audio_effect_library_t& first, const audio_effect_library_t& second,
            const std::vector<int16_t>& loadedMusic, unsigned seed)
        : random(seed), music(loadedMusic), instances{Instance(first), Instance(second)} {}

    // Frames played; 0 if an output differed.
    size_t Play() {
        Configure();
        size_t played = 0;
        const size_t calls = 20 + Below(60);
        for (size_t call = 0; call < calls; ++call) {
            if (Below(3) == 0) ChangeSetting();
            if (Below(40) == 0) Configure();
            const size_t frames = Below(8) == 0 ? 1 + Below(4096) : usualFrames;
            FillInput(frames * channels);
            std::vector<int16_t> outputs[2];
            int status[2];
            for (size_t i = 0; i < 2; ++i) {
                outputs[i].resize(input.size());
                status[i] = instances[i].Process(input.data(), outputs[i].data(),
                                                 static_cast<uint32_t>(frames));
            }
            if (status[0] != status[1] || outputs[0] != outputs[1]) return 0;
            played += frames;
        }
        return played;
    }

private:
    size_t Below(size_t n) { return random() % n; }

    void Configure() {
        constexpr uint32_t kRates[] = {44100, 44100, 48000, 32000, 37123};
        const uint32_t rate = kRates[Below(5)];
        channels = 1 + static_cast<uint32_t>(Below(4) != 0);
        usualFrames = size_t{1} << (5 + Below(8));
        for (Instance& instance : instances) {
            instance.Configure(rate, channels);
            instance.Enable();
        }
        for (int i = 0; i < 12; ++i) ChangeSetting();
        if (Below(4) != 0)
            for (Instance& instance : instances) instance.SwitchEverythingOn();
    }

    void ChangeSetting() {
        // Hundredths; what is lowered while samples wait comes most often.
        const auto usual = static_cast<int32_t>(Below(100)) + 1;
        const auto large = static_cast<int32_t>(Below(3000)) - 200;
        const auto band = static_cast<int32_t>(Below(10));
        const auto on = static_cast<int32_t>(Below(4) != 0);
        const struct {
            int32_t id;
            int32_t first, second = 0;
        } changes[] = {{PARAM_LIMITER_GATE, usual},
                       {PARAM_LIMITER_GATE, Below(4) == 0 ? 0 : usual},
                       {PARAM_PLAYBACKGAIN_MAXGAIN, large},
                       {PARAM_PLAYBACKGAIN_MAXGAIN, usual},
                       {PARAM_PLAYBACKGAIN_VOLUME, large},
                       {PARAM_PLAYBACKGAIN_RATIO, large},
                       {PARAM_EQUALIZER_BANDLEVEL, band, static_cast<int32_t>(Below(400)) - 150},
                       {PARAM_ENHANCER_PROCESS, large},
                       {PARAM_ENHANCER_LOCONTOUR, usual},
                       {PARAM_OUTPUT_GAIN, Below(2) == 0 ? large : 4 * usual},
                       {PARAM_PLAYBACKGAIN_ENABLE, on},
                       {PARAM_EQUALIZER_ENABLE, on},
                       {PARAM_ENHANCER_ENABLE, on}};
        const auto& change = changes[Below(std::size(changes))];
        for (Instance& instance : instances) instance.Set(change.id, {change.first, change.second});
    }

    void FillInput(size_t count) {
        input.assign(count, 0);
        if (Below(6) == 0) {
            kind = Below(6);
            loudness = Below(16);
        }
        for (size_t i = 0; i < count; ++i, ++position) {
            const auto noise = static_cast<int16_t>(random() >> 16U);
            const size_t frame = position / channels;
            switch (kind) {
                case 0:
                case 1:
                    input[i] = music[position % music.size()];
                    break;
                case 2:
                    input[i] = noise;
                    break;
                case 3:
                    input[i] =
                        static_cast<int16_t>(32767 * std::sin(static_cast<double>(frame) * 0.01));
                    break;
                case 4:
                    if (noise > 32700) input[i] = noise;
                    break;
                default:
                    break;
            }
            input[i] = static_cast<int16_t>(input[i] >> (kind == 0 ? 0 : loudness));
        }
    }

    std::mt19937 random;
    const std::vector<int16_t>& music;
    Instance instances[2];
    std::vector<int16_t> input;
    uint32_t channels = 2;
    size_t usualFrames = 1024, position = 0, kind = 0, loudness = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4 && argc != 5) {
        std::fputs("usage: histories LIBRARY OTHER COUNT [FIRST SEED]\n", stderr);
        return 2;
    }
    const LibraryFile files[] = {LibraryFile(argv[1]), LibraryFile(argv[2])};
    for (const LibraryFile& file : files)
        if (file.Record() == nullptr) {
            std::fprintf(stderr, "histories: %s\n", file.Fault().c_str());
            return 2;
        }
    const unsigned long count = std::strtoul(argv[3], nullptr, 10);
    const unsigned long from = argc == 5 ? std::strtoul(argv[4], nullptr, 10) : 1;
    const std::vector<int16_t> music = ReadMusic();
    size_t frames = 0, different = 0;
    for (unsigned long seed = from; seed < from + count; ++seed) {
        size_t played = 0;
        {
            const MutedLog muted;
            played =
                History(*files[0].Record(), *files[1].Record(), music, static_cast<unsigned>(seed))
                    .Play();
        }
        frames += played;
        if (played != 0) continue;
        ++different;
        std::printf("history %lu differs\n", seed);
    }
    std::printf("%lu histories, %zu frames compared, %zu histories differ\n", count, frames,
                different);
    return different == 0 ? 0 : 1;
}
