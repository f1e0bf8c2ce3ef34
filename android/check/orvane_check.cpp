// Checks a built library on the device where it lies. Needs no root and no media server.
//
// usage: orvane-check LIBRARY [HISTORIES]
//
//   LIBRARY    path of the library; interface 2.0 or 3.0
//   HISTORIES  how many of the recorded histories are played, 1 to 400; usually 60
//
// The program loads the library as the platform does and looks at its record. Then it plays
// histories (client/histories.h) and compares the digest of all answers and samples with the
// recorded one. At last it measures what a buffer costs, for each choice of stages and for several
// sizes. Times never decide about the result.
//
// The last line is PASSED or FAILED, because adb of Android 4.0's time reports no status. The
// status is 0 or 1. If the library crashes, there is no last line.
//
// The program uses few functions of the C library, and nothing of a C++ run-time library, because
// it is linked without an NDK (CMakeLists.txt).
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <new>

#include "client/history_player.h"
#include "table/stages.h"

namespace {

constexpr uint64_t kDigests[] = {
#include "recorded_digests.inc"
};
static_assert(std::size(kDigests) == kRecordedHistories);

// On a device without a floating-point unit these take 2.9 billion instructions, and the
// measurements take 3.7 billion. At 200 MHz and 1.4 cycles for each, that is 46 s.
constexpr uint32_t kUsuallyPlayed = 60;

constexpr uint32_t kRateHz = 44100;
constexpr uint32_t kBufferSizes[] = {256, 512, 1024, 2048};  // frames
constexpr uint32_t kLargestBuffer = 2048;
// About a second, in which buffers of every size fit.
constexpr uint32_t kMeasuredFrames = 20 * kLargestBuffer;
// These come first and are not measured. Meanwhile the chain's delays fill, and the processor may
// raise its clock.
constexpr uint32_t kWarmUpFrames = 2 * kLargestBuffer;

// The record that the library exports, as long as its version is unknown.
struct AnyRecord {
    uint32_t tag;
    uint32_t version;  // major in the upper half, minor in the lower
    const char* name;
    const char* implementor;
    void (*functions[5])();  // interface 2.0: create_effect is the third; 3.0: it is the first
};

template <typename Function>
void Take(Function* to, void (*from)()) {
    *to = reinterpret_cast<Function>(from);
}

// Loads the library and fills in the functions of its record. Returns false if the platform would
// refuse it, and prints why.
bool Load(const char* path, audio_effect_library_t* record) {
    // With 32 bits, Android's RTLD_NOW is 0, and this C library's 2 is its RTLD_GLOBAL. Android's
    // loader resolves every function at once in both cases.
    void* const library = dlopen(path, RTLD_NOW);
    if (library == nullptr) {
        std::printf("The library can't be loaded: %s\n", dlerror());
        return false;
    }
    const void* const symbol = dlsym(library, AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
    if (symbol == nullptr) {
        std::printf("The library doesn't export %s.\n", AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
        return false;
    }
    const auto& any = *static_cast<const AnyRecord*>(symbol);
    const unsigned tag = any.tag, major = any.version >> 16U, minor = any.version & 0xFFFFU;
    if (tag != AUDIO_EFFECT_LIBRARY_TAG) {
        std::printf("The record begins with %08x instead of %08x.\n", tag,
                    static_cast<unsigned>(AUDIO_EFFECT_LIBRARY_TAG));
        return false;
    }
    if (major != 2 && major != 3) {
        std::printf("The record has library interface %u.%u instead of 2 or 3.\n", major, minor);
        return false;
    }
    void (*const* const functions)() = any.functions + (major == 2 ? 2 : 0);
    if (functions[0] == nullptr || functions[1] == nullptr || functions[2] == nullptr) {
        std::printf("The record lacks a function.\n");
        return false;
    }
    *record = {};
    Take(&record->create_effect, functions[0]);
    Take(&record->release_effect, functions[1]);
    Take(&record->get_descriptor, functions[2]);
    std::printf("Library interface %u.%u, %u bits.\n", major, minor,
                static_cast<unsigned>(8 * sizeof(void*)));
    return true;
}

// Returns true if the library knows the effect and makes an instance of it. Otherwise prints what
// is wrong.
bool HasEffect(const audio_effect_library_t& record) {
    effect_descriptor_t descriptor = {};
    const int known = record.get_descriptor(&kOrvaneUuid, &descriptor);
    if (known != kStatusOk) {
        std::printf("The library doesn't know the effect: status %d.\n", known);
        return false;
    }
    const unsigned version = descriptor.apiVersion;
    if (version >> 16U != EFFECT_CONTROL_API_VERSION >> 16U) {
        std::printf("The effect has interface %u.%u instead of 2.\n", version >> 16U,
                    version & 0xFFFFU);
        return false;
    }
    ClientInstance instance(record);
    if (instance.handle == nullptr) {
        const int status = instance.CreateStatus();
        std::printf("The library makes no instance: status %d.\n", status);
        return false;
    }
    const auto library = static_cast<unsigned>(instance.Get(PARAM_GET_VERSION));
    std::printf("%.64s, version %u.%u.%u.%u.\n", descriptor.name, library >> 24U,
                library >> 16U & 0xFFU, library >> 8U & 0xFFU, library & 0xFFU);
    return true;
}

// Large objects, which are used one after the other.
alignas(History) unsigned char historyRoom[sizeof(History)];
alignas(HistoryPlayer) unsigned char playerRoom[sizeof(HistoryPlayer)];

// Plays the histories from 0 to `count` - 1. Returns false if a digest differs from the recorded
// one, or if nothing was compared.
bool PlayHistories(const audio_effect_library_t& record, unsigned count) {
    unsigned wrong = 0, frames = 0;
    std::printf("\nHistories: random calls, settings and sounds with recorded digests.\n");
    for (unsigned number = 0; number < count; ++number) {
        auto& history = *new (historyRoom) History(number);
        // A crash then shows the history that it happened in.
        std::printf("history %u, %s: ", number, history.Theme());
        std::fflush(nullptr);
        auto& player = *new (playerRoom) HistoryPlayer(record);
        while (const HistoryCall* const call = history.Next())
            history.Answer(player.Play(*call, history.Input(), history.Channels()), player.out);
        player.~HistoryPlayer();
        const bool right = history.Digest() == kDigests[number];
        if (!right) ++wrong;
        frames += history.Frames();
        std::printf("%u frames, %s\n", static_cast<unsigned>(history.Frames()),
                    right ? "every sample is right" : "SAMPLES ARE WRONG");
    }
    std::printf("Played %u of %u recorded histories, %u frames: %u are wrong.\n", count,
                static_cast<unsigned>(kRecordedHistories), frames, wrong);
    return wrong == 0 && frames > 0;
}

int16_t sound[2 * kMeasuredFrames], output[2 * kLargestBuffer];

// Fills `sound` with the stereo sounds of histories: music, noise, tones and quiet passages.
void MakeSound() {
    size_t filled = 0;
    for (uint32_t number = 0; filled < std::size(sound); ++number) {
        auto& history = *new (historyRoom) History(number);
        while (const HistoryCall* const call = history.Next()) {
            size_t count = 0;
            if (call->kind == HistoryCall::kProcess && history.Channels() == 2)
                count = std::min(2 * static_cast<size_t>(call->first), std::size(sound) - filled);
            std::copy_n(history.Input(), count, sound + filled);
            filled += count;
            history.Answer(kStatusInvalid, nullptr);
        }
    }
}

uint64_t NowNs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000U + static_cast<uint64_t>(now.tv_nsec);
}

struct Setting {
    int32_t id, first, second;
};
// A usual value of every parameter, and a level for each band. All switches are on.
constexpr auto kSettings = [] {
    std::array<Setting, kBandCount + std::size(kParameters)> settings{};
    size_t n = 0;
    for (int32_t band = 0; band < kBandCount; ++band)
        settings[n++] = {PARAM_EQUALIZER_BANDLEVEL, band, 15 * band - 60};
    for (const Parameter& parameter : kParameters)
        if (*parameter.key != '\0' && parameter.kind != ParameterKind::kBandValue)
            settings[n++] = {parameter.id, parameter.OnWire(parameter.trial), 0};
    return settings;
}();

// Prints the names of the stages in the sum `stages`. The first switch counts 1, the second 2, the
// third 4 and so on. Returns the number of characters.
int PrintStages(unsigned stages) {
    if (stages == 0) return std::printf("output limiters alone");
    if (stages == (1U << kSwitchCount) - 1) return std::printf("everything");
    int width = 0;
    unsigned bit = 1;
    for (const StageRow& stage : kStages) {
        if (stage.enable == kNoSwitch) continue;
        if ((stages & bit) != 0) width += std::printf("%s%s", width > 0 ? ", " : "", stage.name);
        bit *= 2;
    }
    return width;
}

// Prints a time for `frames` frames, in microseconds and as part of the time that they last.
void PrintTime(uint64_t ns, uint32_t frames) {
    const uint64_t perMille = ns * kRateHz / (uint64_t{frames} * 1000000U);
    std::printf("%9u us%6u.%u %%", static_cast<unsigned>((ns + 500) / 1000),
                static_cast<unsigned>(perMille / 10), static_cast<unsigned>(perMille % 10));
}

// Measures buffers of `frames` frames with the stages of the sum `stages`. Returns false if a
// buffer is refused.
bool Measure(const audio_effect_library_t& record, unsigned stages, uint32_t frames) {
    ClientInstance instance(record);
    instance.Configure(kRateHz, 2);
    for (const Setting& setting : kSettings)
        if (setting.id != 0) instance.Set(setting.id, {setting.first, setting.second});
    for (size_t bit = 0; bit < kSwitchCount; ++bit)
        instance.Set(kStageSwitches[bit], {static_cast<int32_t>(stages >> bit & 1U)});
    instance.Enable();
    bool refused = false;
    for (uint32_t at = 0; at < kWarmUpFrames; at += frames)
        refused |= instance.Process(sound + size_t{2} * at, output, frames) != kStatusOk;
    uint64_t sum = 0, slowest = 0;
    for (uint32_t at = 0; at < kMeasuredFrames; at += frames) {
        const uint64_t before = NowNs();
        refused |= instance.Process(sound + size_t{2} * at, output, frames) != kStatusOk;
        const uint64_t took = NowNs() - before;
        sum += took;
        slowest = std::max(slowest, took);
    }
    constexpr int kWidth = 25;
    std::printf("%*s%6u", kWidth - PrintStages(stages), "", static_cast<unsigned>(frames));
    PrintTime(sum / (kMeasuredFrames / frames), frames);
    PrintTime(slowest, frames);
    std::printf(refused ? " REFUSED\n" : "\n");
    std::fflush(nullptr);
    return !refused;
}

bool MeasureAll(const audio_effect_library_t& record) {
    MakeSound();
    std::printf(
        "\nWhat a buffer costs, %u Hz, stereo: in microseconds and in %% of the time that it "
        "lasts.\n"
        "Each line is about a second of sound.\n\n"
        "stages                   frames                mean        slowest call\n",
        static_cast<unsigned>(kRateHz));
    bool good = true;
    for (unsigned stages = 0; stages < 1U << kSwitchCount; ++stages)
        for (const uint32_t frames : kBufferSizes) good &= Measure(record, stages, frames);
    return good;
}

bool Check(int argc, char** argv) {
    const unsigned long count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : kUsuallyPlayed;
    if (argc < 2 || argc > 3 || count < 1 || count > kRecordedHistories) {
        std::printf("usage: orvane-check LIBRARY [HISTORIES, 1 to %u]\n",
                    static_cast<unsigned>(kRecordedHistories));
        return false;
    }
    audio_effect_library_t record;
    if (!Load(argv[1], &record) || !HasEffect(record)) return false;
    const bool right = PlayHistories(record, static_cast<unsigned>(count));
    return MeasureAll(record) && right;
}

}  // namespace

// Called by _start with the stack as the program gets it: the number of arguments, then their
// addresses. The loader has already initialised the C library.
extern "C" [[noreturn, gnu::used]] void OrvaneCheckStart(void** stack) {
    const auto argc = static_cast<int>(reinterpret_cast<intptr_t>(*stack));
    const bool passed = Check(argc, reinterpret_cast<char**>(stack + 1));
    std::printf(passed ? "PASSED\n" : "FAILED\n");
    std::exit(passed ? 0 : 1);
}

// The platform's own start-up code comes with the NDK only. This code passes the stack on and
// aligns it.
#if defined __arm__
asm(".text\n.arm\n.globl _start\n.type _start, %function\n"
    "_start: mov r0, sp\n bic sp, sp, #7\n b OrvaneCheckStart\n");
#elif defined __aarch64__
asm(".text\n.globl _start\n.type _start, %function\n"
    "_start: mov x0, sp\n mov x29, #0\n mov x30, #0\n b OrvaneCheckStart\n");
#elif defined __x86_64__
asm(".text\n.globl _start\n.type _start, @function\n"
    "_start: mov %rsp, %rdi\n xor %ebp, %ebp\n and $-16, %rsp\n call OrvaneCheckStart\n");
#endif
