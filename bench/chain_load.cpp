// Plays two seconds through an instance with everything switched on. Instructions are counted under
// this load. The program is linked statically, so that the emulator knows every function's name.
//
// usage: chain_load FRAMES LOAD [STAGES]
//
//   FRAMES  frames in each buffer
//   LOAD    music
//           noise     at full scale
//           silence
//           decay     one buffer of noise, then silence
//           least     noise, with every value set to the least int32
//           largest   noise, with every value set to the largest int32
//           commands  noise, with a reset, a disable, an enable and a change of mode before each
//                     buffer
//   STAGES  the stages that are on besides those without a switch, as a sum: 1 for the first switch
//           of the table of stages, 2 for the second, 4 for the third and so on
//
// usage: chain_load stages
//
// Prints the sums that are worth counting, each with the names of its stages: "3:playback gain,
// equalizer".
#include <algorithm>
#include <cstdio>
#include <string>

#include "bench/music.h"
#include "host/entry_points.h"
#include "table/stages.h"
#include "tests/library_under_test.h"

namespace {

constexpr long kAllStages = (1L << kSwitchCount) - 1;
// With more switches than this, only each stage alone and all together are printed, because nobody
// reads more combinations.
constexpr size_t kMostCombined = 3;

void PrintStages() {
    for (long sum = 0; sum <= kAllStages; ++sum) {
        if (kSwitchCount > kMostCombined && sum != kAllStages && (sum & (sum - 1)) != 0) continue;
        std::string names;
        long bit = 1;
        for (const StageRow& stage : kStages) {
            if (stage.enable == kNoSwitch) continue;
            if ((sum & bit) != 0) names += (names.empty() ? "" : ", ") + std::string(stage.name);
            bit *= 2;
        }
        if (sum == 0) names = "output limiters alone";
        if (sum == kAllStages) names = "everything";
        std::printf("%ld:%s\n", sum, names.c_str());
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && argv[1] == std::string("stages")) {
        PrintStages();
        return 0;
    }
    const long frames = argc >= 3 ? std::strtol(argv[1], nullptr, 10) : 0;
    const std::string load = argc >= 3 ? argv[2] : "";
    const long stages = argc == 4 ? std::strtol(argv[3], nullptr, 10) : kAllStages;
    const std::string loads[] = {"music", "noise",   "silence", "decay",
                                 "least", "largest", "commands"};
    if (frames < 1 || frames > 65536 || std::count(std::begin(loads), std::end(loads), load) == 0 ||
        stages < 0 || stages > kAllStages) {
        std::fputs(
            "usage: chain_load FRAMES music|noise|silence|decay|least|largest|commands [STAGES]\n",
            stderr);
        return 2;
    }
    const size_t step = 2 * static_cast<size_t>(frames);
    std::vector<int16_t> input = ReadMusic(), out(step);
    if (load != "music") input = NoiseSamples(input.size(), 32767);
    if (load == "silence") std::fill(input.begin(), input.end(), int16_t{0});
    if (load == "decay") std::fill(input.begin() + 2 * frames, input.end(), int16_t{0});
    Instance instance(AELI);
    instance.Start(44100, 2);
    for (size_t bit = 0; bit < kSwitchCount; ++bit)
        if ((stages >> bit & 1) == 0) instance.Set(kStageSwitches[bit], {0});
    if (load == "least") instance.SetEveryValue(INT32_MIN);
    if (load == "largest") instance.SetEveryValue(INT32_MAX);
    for (size_t at = 0; at + step <= input.size(); at += step) {
        if (load == "commands") {
            instance.Reset();
            instance.Disable();
            instance.Enable();
            instance.Set(PARAM_SET_MODE, {static_cast<int32_t>(at / step % 2)});
        }
        if (instance.Process(input.data() + at, out.data(), static_cast<uint32_t>(frames)) != 0)
            return 1;
    }
    return 0;
}
