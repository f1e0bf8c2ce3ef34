// Memory: every single allocation refused in turn, and none at all where the audio thread runs.
//
// The executable's malloc and its relatives come before the platform's for the loaded library too.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "framework_client.h"
#include "muted_log.h"

namespace {

struct Heap {
    bool watched = false;   // whether what follows counts
    int refuseFrom = 0;     // the allocation to refuse, from 1; 0: none
    bool andAfter = false;  // and all behind it
    int allocations = 0, refusals = 0, frees = 0, outstanding = 0;
} heap;

bool Refuses() {
    if (!heap.watched) return false;
    ++heap.allocations;
    const bool refuses =
        heap.allocations == heap.refuseFrom ||
        (heap.andAfter && heap.refuseFrom != 0 && heap.allocations > heap.refuseFrom);
    ++(refuses ? heap.refusals : heap.outstanding);
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
    if (heap.watched && memory != nullptr) --heap.outstanding;
    return __libc_realloc(memory, size);
}
void free(void* memory) {
    if (heap.watched && memory != nullptr) {
        ++heap.frees;
        --heap.outstanding;
    }
    __libc_free(memory);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-inconsistent-declaration-parameter-name)

namespace {

using Samples = std::vector<int16_t>;
constexpr uint32_t kFrames = 256;

// Counts what happens in `call` and refuses as told.
template <typename Call>
void Watched(Call call, int refuseFrom = 0, bool andAfter = false) {
    heap.allocations = heap.refusals = heap.frees = 0;
    heap.refuseFrom = refuseFrom;
    heap.andAfter = andAfter;
    heap.watched = true;
    call();
    heap.watched = false;
}

// Calls attempt(n, andAfter) for n = 1, 2, ... until it returns that nothing was refused. Each must
// give back all memory. Returns how many allocations there were to refuse.
template <typename Attempt>
int RefuseEach(Attempt attempt) {
    int refused = 0;
    for (const bool andAfter : {false, true}) {
        for (int n = 1;; ++n) {
            heap.outstanding = 0;
            const bool any = attempt(n, andAfter);
            EXPECT_EQ(heap.outstanding, 0);
            if (testing::Test::HasFailure()) ADD_FAILURE() << "refused: " << n << " " << andAfter;
            if (!any || testing::Test::HasFailure()) break;
            refused = n;
        }
    }
    return refused;
}

// The status that all buffers of `in` gave, or 1 if they differ.
int32_t Play(Instance& instance, const Samples& in, Samples* out, uint32_t frames,
             uint32_t channels) {
    out->assign(in.size(), 0);
    const size_t step = size_t{frames} * channels;
    int32_t status = 0;
    Watched([&] {
        for (size_t at = 0; at + step <= in.size(); at += step) {
            const int32_t now = instance.Process(in.data() + at, out->data() + at, frames);
            status = at == 0 || now == status ? now : 1;
        }
    });
    return status;
}

// Either not ready and silent, or all is processed as a healthy instance does it.
void ExpectNotReadyOr(const Samples& healthy, Instance& instance, const Samples& in,
                      uint32_t channels) {
    Samples out;
    const bool ready = instance.Get(PARAM_GET_READY) == 1;
    EXPECT_EQ(Play(instance, in, &out, kFrames, channels), ready ? 0 : -61);
    EXPECT_TRUE(out == (ready ? healthy : Samples(in.size())));
}

Samples Healthy(const Samples& in, uint32_t rate, uint32_t channels) {
    Instance instance;
    instance.Start(rate, channels);
    return instance.Run(in, kFrames, channels);
}

TEST(Allocation, CreateRefusesOrLeavesTheInstanceNotReadyForGood) {
    const Samples in = NoiseSamples(size_t{2} * 10 * kFrames, 9000);
    const Samples healthy = Healthy(in, 44100, 2), mono = Healthy(in, 44100, 1);
    const audio_effect_library_t& record = LoadedLibrary();
    const std::string error = "EffectCreate(), qth orvane effect, Error [";
    const std::vector<std::string> errors[] = {{error + "calloc() return NULL]\n"},
                                               {error + "new ProcessUnit_Orvane() return NULL]\n",
                                                error + "ProcessUnit_Orvane construct failed]\n"}};
    const int all = RefuseEach([&](int n, bool andAfter) {
        effect_handle_t handle = nullptr;
        int32_t status = 0;
        testing::internal::CaptureStderr();
        Watched([&] { status = record.create_effect(&kOrvaneUuid, 0, 0, &handle); }, n, andAfter);
        const std::string log = testing::internal::GetCapturedStderr();
        const bool refused = heap.refusals != 0;
        if (n <= 2) {
            EXPECT_EQ(status, -22);
            EXPECT_EQ(handle, nullptr);
            std::string tail;
            for (const std::string& line : errors[n - 1]) tail += "I/Quenthra_v2: " + line;
            EXPECT_TRUE(log.size() > tail.size() && log.substr(log.size() - tail.size()) == tail)
                << log;
            return true;
        }
        const MutedLog muted;
        EXPECT_EQ(status, 0);
        Instance instance(handle);
        instance.Start(44100, 2);
        EXPECT_EQ(instance.Get(PARAM_GET_READY), refused ? 0 : 1);
        ExpectNotReadyOr(healthy, instance, in, 2);
        Watched([&] { instance.Configure(44100, 1); });
        EXPECT_EQ(instance.Get(PARAM_GET_READY), refused ? 0 : 1);
        ExpectNotReadyOr(mono, instance, in, 1);
        Watched([&] { instance.Release(); });
        return refused;
    });
    EXPECT_GT(all, 10);
}

effect_handle_t WatchedHandle() {
    const MutedLog muted;
    effect_handle_t handle = nullptr;
    Watched([&] { LoadedLibrary().create_effect(&kOrvaneUuid, 0, 0, &handle); });
    return handle;
}

TEST(Allocation, ConfigureLeavesTheInstanceNotReadyOrHealthy) {
    const MutedLog muted;
    const Samples in = NoiseSamples(size_t{2} * 10 * kFrames, 9000);
    const Samples before = Healthy(in, 44100, 2);
    for (const auto& [rate, channels] : {std::pair{48000U, 2U}, {44100U, 1U}, {32000U, 1U}}) {
        const Samples healthy = Healthy(in, rate, channels);
        const int all = RefuseEach([&, rate = rate, channels = channels](int n, bool andAfter) {
            Instance instance(WatchedHandle());
            instance.Start(44100, 2);
            Watched([&] { EXPECT_EQ(instance.Configure(rate, channels), 0); }, n, andAfter);
            const bool refused = heap.refusals != 0;
            ExpectNotReadyOr(healthy, instance, in, channels);
            Watched([&] { instance.Configure(44100, 2); });
            EXPECT_TRUE(refused || instance.Get(PARAM_GET_READY) == 1);
            ExpectNotReadyOr(before, instance, in, 2);
            Watched([&] { instance.Release(); });
            return refused;
        });
        EXPECT_GT(all, 2);
    }
}

TEST(Allocation, ABufferThatCannotGrowIsLeftOutOfTheChainAndTheNextGoesOn) {
    constexpr uint32_t kLong = 4096;
    const Samples first = NoiseSamples(size_t{2} * 9 * kFrames, 9000, 1);
    const Samples grown = NoiseSamples(size_t{2} * kLong, 9000, 2);
    const Samples later = NoiseSamples(size_t{2} * 4 * kLong, 9000, 3);
    // With the playback gain off, its result is the input.
    const auto prepare = [&](Instance& instance) {
        const MutedLog muted;
        Samples out;
        instance.Start(44100, 2);
        instance.Set(PARAM_PLAYBACKGAIN_ENABLE, {0});
        Play(instance, first, &out, kFrames, 2);
    };
    Instance with, without;
    prepare(with);
    prepare(without);
    const Samples expected = with.Run(grown, kLong, 2);
    const Samples expectedLater[] = {with.Run(later, kLong, 2), without.Run(later, kLong, 2)};
    const int all = RefuseEach([&](int n, bool andAfter) {
        Instance instance(WatchedHandle());
        prepare(instance);
        Samples out(grown.size());
        int32_t status = -1;
        testing::internal::CaptureStderr();
        Watched([&] { status = instance.Process(grown.data(), out.data(), kLong); }, n, andAfter);
        const std::string log = testing::internal::GetCapturedStderr();
        const bool refused = heap.refusals != 0;
        EXPECT_EQ(status, 0);
        EXPECT_EQ(log, refused ? "I/Quenthra_v2: Memory not enough!\n" : "");
        EXPECT_TRUE(out == (refused ? grown : expected));
        EXPECT_EQ(Play(instance, later, &out, kLong, 2), 0);
        EXPECT_TRUE(out == expectedLater[refused ? 1 : 0]);
        const MutedLog muted;
        Watched([&] { instance.Release(); });
        return refused;
    });
    EXPECT_GE(all, 2);
}

TEST(Allocation, TheAudioThreadNeitherAllocatesNorFreesUpTo2048Frames) {
    const MutedLog muted;
    const Samples in = NoiseSamples(4096, 9000);
    Samples out(in.size());
    std::mt19937 random(5);
    constexpr uint32_t kSizes[] = {1, 2, 255, 769, 770, 771, 1539, 1540, 1541, 2046, 2047, 2048};
    for (const uint32_t channels : {1U, 2U}) {
        Instance instance;
        instance.Start(48000, channels);
        int32_t refused = 0;
        const auto call = [&](uint32_t what, uint32_t frames) {
            int32_t mode[] = {0, 4, 4, PARAM_SET_MODE, static_cast<int32_t>(what & 1U)};
            if (what < 2) instance.Command(EFFECT_CMD_SET_PARAM, sizeof mode, mode);
            if (what == 2) instance.Disable();
            if (what <= 3) instance.Enable();
            if (what == 4) instance.Reset();
            refused |= instance.Process(in.data(), out.data(), frames);
        };
        const auto number = [&](uint32_t limit) { return static_cast<uint32_t>(random()) % limit; };
        Watched([&] {
            for (int i = 0; i < 1000; ++i)
                call(number(250),
                     i % 2 == 0 ? kSizes[number(std::size(kSizes))] : 1 + number(2048));
        });
        EXPECT_EQ(refused, 0);
        EXPECT_EQ(heap.allocations, 0);
        EXPECT_EQ(heap.frees, 0);
    }
}

}  // namespace
