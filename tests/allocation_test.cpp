// Tests memory: each allocation is refused in turn, and the audio thread must not allocate at all.
// The executable's malloc, calloc, realloc and free replace the platform's, also for the loaded
// library.
#include <gtest/gtest.h>

#include <climits>

#include "client/stderr_silencer.h"
#include "library_under_test.h"

namespace {

struct Heap {
    int allocations = 0, frees = 0, outstanding = 0;
    int from = 0, to = 0;  // the allocations to refuse, from `from` to `to` - 1, counted from 1
} heap;

bool Refuses() {
    ++heap.allocations;
    const bool refuses = heap.from <= heap.allocations && heap.allocations < heap.to;
    if (!refuses) ++heap.outstanding;
    return refuses;
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)
extern "C" {
void* __libc_malloc(size_t);
void* __libc_calloc(size_t, size_t);
void* __libc_realloc(void*, size_t);
void __libc_free(void*);

void* malloc(size_t size) {
    return Refuses() ? nullptr : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return Refuses() ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    if (Refuses()) return nullptr;
    if (memory != nullptr) --heap.outstanding;
    return __libc_realloc(memory, size);
}
void free(void* memory) {
    if (memory != nullptr) {
        ++heap.frees;
        --heap.outstanding;
    }
    __libc_free(memory);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

namespace {

using Samples = std::vector<int16_t>;

// Runs `call` and refuses its nth allocation, and with `andAfter` all later ones. Returns whether
// there was an nth allocation.
template <typename Call>
bool Refusing(int n, bool andAfter, Call call) {
    heap.allocations = 0;
    heap.from = n;
    heap.to = andAfter ? INT_MAX : n + 1;
    call();
    heap.to = 0;
    return heap.allocations >= n;
}

// Calls attempt(n, andAfter) for n = 1, 2, ... until it returns that nothing was refused. Each
// attempt must free all memory. Returns how many allocations there were to refuse.
template <typename Attempt>
int RefuseEach(Attempt attempt) {
    LoadedLibrary();  // memory that loading takes is kept
    int n = 0;
    for (const bool andAfter : {false, true}) {
        bool refused = true;
        for (n = 0; refused && !testing::Test::HasFailure();) {
            const int before = heap.outstanding;
            refused = attempt(++n, andAfter);
            EXPECT_EQ(heap.outstanding, before);
            if (testing::Test::HasFailure()) ADD_FAILURE() << "refused: " << n << " " << andAfter;
        }
    }
    return n - 1;
}

// Returns whether the instance is ready. If it is not ready, it must be silent. If it is ready, its
// output must be that of a healthy instance.
bool IsReady(Instance& instance, uint32_t rate, uint32_t channels) {
    constexpr uint32_t kFrames = 256;
    const Samples in = NoiseSamples(size_t{2} * 10 * kFrames, 9000);
    Samples expected(in.size()), out(in.size());
    const bool ready = instance.Get(PARAM_GET_READY) == 1;
    if (ready) {
        Instance healthy;
        healthy.Start(rate, channels);
        expected = healthy.Run(in, kFrames, channels);
    }
    for (size_t at = 0; at < in.size(); at += size_t{kFrames} * channels)
        EXPECT_EQ(instance.Process(&in[at], &out[at], kFrames), ready ? 0 : -61);
    EXPECT_TRUE(out == expected);
    return ready;
}

TEST(Allocation, CreateRefusesOrLeavesTheInstanceNotReadyForGood) {
    const StderrSilencer muted;
    const audio_effect_library_t& record = LoadedLibrary();
    const int all = RefuseEach([&](int n, bool andAfter) {
        effect_handle_t handle = nullptr;
        int32_t status = 0;
        const bool refused = Refusing(
            n, andAfter, [&] { status = record.create_effect(&kOrvaneUuid, 0, 0, &handle); });
        EXPECT_EQ(status, n <= 2 ? -22 : 0);
        EXPECT_EQ(handle == nullptr, n <= 2);
        if (handle == nullptr) return true;
        Instance instance(handle);
        instance.Start(44100, 2);
        EXPECT_EQ(IsReady(instance, 44100, 2), !refused);
        instance.Configure(48000, 1);
        EXPECT_EQ(IsReady(instance, 48000, 1), !refused);
        return refused;
    });
    EXPECT_GT(all, 10);
}

TEST(Allocation, ConfigureLeavesTheInstanceNotReadyOrHealthy) {
    const StderrSilencer muted;
    for (const auto& [rate, channels] : {std::pair{48000U, 2U}, {44100U, 1U}, {32000U, 1U}}) {
        const int all = RefuseEach([&, rate = rate, channels = channels](int n, bool andAfter) {
            Instance instance;
            instance.Start(44100, 2);
            const bool refused =
                Refusing(n, andAfter, [&] { EXPECT_EQ(instance.Configure(rate, channels), 0); });
            EXPECT_TRUE(IsReady(instance, rate, channels) || refused);
            instance.Configure(44100, 2);
            EXPECT_TRUE(IsReady(instance, 44100, 2) || refused);
            return refused;
        });
        EXPECT_GT(all, 2);
    }
}

TEST(Allocation, ABufferThatCannotGrowIsLeftOutOfTheChainAndTheNextGoesOn) {
    const StderrSilencer muted;
    constexpr uint32_t kLong = 4096;
    const Samples first = NoiseSamples(size_t{2} * 9 * 256, 9000, 1);
    const Samples grown = NoiseSamples(size_t{2} * kLong, 9000, 2);
    const Samples later = NoiseSamples(size_t{2} * 4 * kLong, 9000, 3);
    const int all = RefuseEach([&](int n, bool andAfter) {
        Instance instance, healthy;
        for (Instance* each : {&instance, &healthy}) {
            each->Start(44100, 2);
            each->Set(PARAM_PLAYBACKGAIN_ENABLE, {0});  // so that its output is its input
            each->Run(first, 256, 2);
        }
        Samples out(grown.size());
        int32_t status = -1;
        const bool refused = Refusing(
            n, andAfter, [&] { status = instance.Process(grown.data(), out.data(), kLong); });
        EXPECT_EQ(status, 0);
        EXPECT_TRUE(out == (refused ? grown : healthy.Run(grown, kLong, 2)));
        EXPECT_TRUE(instance.Run(later, kLong, 2) == healthy.Run(later, kLong, 2));
        return refused;
    });
    EXPECT_GE(all, 2);
}

// The output limiters delay by 255 frames and multiply by 0.998.
TEST(Allocation, ABufferThatCannotGrowIsStillLevelledAndLogged) {
    testing::internal::CaptureStderr();
    constexpr uint32_t kLong = 4096;
    const Samples first = NoiseSamples(size_t{2} * 200 * 256, 9000, 1);
    const Samples grown = NoiseSamples(size_t{2} * kLong, 900, 2);
    Instance instance, healthy;
    for (Instance* each : {&instance, &healthy}) {
        each->Configure(44100, 2);
        each->Set(PARAM_PLAYBACKGAIN_ENABLE, {1});
        each->Enable();
        each->Run(first, 256, 2);
    }
    Samples out(grown.size());
    Refusing(1, true, [&] { instance.Process(grown.data(), out.data(), kLong); });
    const Samples wanted = healthy.Run(grown, kLong, 2);
    for (size_t i = 510; i < wanted.size(); ++i) ASSERT_NEAR(wanted[i], 0.998 * out[i - 510], 1);
    EXPECT_TRUE(testing::internal::GetCapturedStderr().ends_with("Memory not enough!\n"));
}

TEST(Allocation, TheAudioThreadNeitherAllocatesNorFreesUpTo2048Frames) {
    const StderrSilencer muted;
    const Samples in = NoiseSamples(4096, 9000);
    Samples out(in.size());
    std::mt19937 random(5);
    constexpr uint32_t kSizes[] = {1, 2, 255, 769, 770, 771, 1539, 1540, 1541, 2046, 2047, 2048};
    for (const uint32_t channels : {1U, 2U}) {
        Instance instance;
        instance.Start(48000, channels);
        heap.allocations = heap.frees = 0;
        for (int i = 0; i < 1000; ++i) {
            const auto what = static_cast<int32_t>(random() % 250);
            int32_t mode[] = {0, 4, 4, PARAM_SET_MODE, what};
            if (what < 2) instance.Command(EFFECT_CMD_SET_PARAM, sizeof mode, mode);
            if (what == 2) instance.Disable();
            if (what <= 3) instance.Enable();
            if (what == 4) instance.Reset();
            const auto frames = static_cast<uint32_t>(random() % 2048) + 1;
            EXPECT_EQ(instance.Process(in.data(), out.data(),
                                       i % 2 == 0 ? frames : kSizes[frames % std::size(kSizes)]),
                      0);
        }
        EXPECT_EQ(heap.allocations, 0);
        EXPECT_EQ(heap.frees, 0);
    }
}

}  // namespace
