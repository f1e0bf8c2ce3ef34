// What the audio thread does besides arithmetic: one lock and one unlock a call, and no system
// call. (That it neither allocates nor frees is with the allocation tests.)
//
// The executable's pthread_mutex_lock, its relative and write come before the platform's for the
// loaded library too. The log is left out: a line is one write. Built with clang's real-time
// sanitizer (clang 20 or later, scripts/realtime-sanitizer.sh) each call runs under it as well.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstddef>

#include "framework_client.h"

namespace {

int locks = 0, unlocks = 0;

using MutexCall = int (*)(pthread_mutex_t*);
MutexCall PlatformsOwn(const char* name) {
    return reinterpret_cast<MutexCall>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {
int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const MutexCall lock = PlatformsOwn("pthread_mutex_lock");
    ++locks;
    return lock(mutex);
}
int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    static const MutexCall unlock = PlatformsOwn("pthread_mutex_unlock");
    ++unlocks;
    return unlock(mutex);
}
// Drops log lines without asking the kernel.
ssize_t write(int fd, const void* buf, size_t n) {
    if (fd == STDERR_FILENO) return static_cast<ssize_t>(n);
    return syscall(SYS_write, fd, buf, n);
}
// Of the sanitizer; null without it.
// NOLINTBEGIN(bugprone-reserved-identifier): its names
__attribute__((weak)) void __rtsan_realtime_enter();
__attribute__((weak)) void __rtsan_realtime_exit();
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

template <typename Call>
void InRealTime(Call call) {
    if (__rtsan_realtime_enter != nullptr) __rtsan_realtime_enter();
    call();
    if (__rtsan_realtime_exit != nullptr) __rtsan_realtime_exit();
}

enum class Settings { kOff, kOn, kLowest, kHighest };

void Prepare(Instance& instance, uint32_t rate, uint32_t channels, Settings settings) {
    instance.Configure(rate, channels);
    if (settings != Settings::kOff) instance.SwitchEverythingOn();
    if (settings == Settings::kLowest || settings == Settings::kHighest) {
        const int32_t value = settings == Settings::kLowest ? INT32_MIN : INT32_MAX;
        for (int32_t band = 0; band < 10; ++band)
            instance.Set(PARAM_EQUALIZER_BANDLEVEL, {band, value});
        for (const Parameter& parameter : kParameters)
            if (parameter.kind == ParameterKind::kValue) instance.Set(parameter.id, {value});
    }
    instance.Enable();
}

constexpr uint32_t kLongest = 2048;
constexpr uint32_t kSizes[] = {1, 255, 770, 771, 1024, kLongest};
constexpr size_t kMostSamples = size_t{2} * kLongest;
const std::vector<int16_t> in = NoiseSamples(kMostSamples, 32767);
std::vector<int16_t> out(kMostSamples);

// Everything that arrives on the audio thread, each call through `around`. Returns whether every
// status was 0.
template <typename Around>
bool AudioThread(Instance& instance, Around around) {
    int32_t wrong = 0;
    int32_t mode[] = {0, 4, 4, PARAM_SET_MODE, 1};
    for (const uint32_t frames : kSizes)
        for (int repetition = 0; repetition < 4; ++repetition)
            around([&] { wrong |= instance.Process(in.data(), out.data(), frames); });
    around([&] { wrong |= instance.Disable(); });
    around([&] { wrong |= instance.Enable(); });
    around([&] { wrong |= instance.Process(in.data(), out.data(), kLongest); });
    around([&] { instance.Reset(); });
    around([&] { wrong |= instance.Command(EFFECT_CMD_SET_PARAM, sizeof mode, mode); });
    around([&] { wrong |= instance.Process(in.data(), out.data(), kLongest); });
    return wrong == 0;
}

template <typename Check>
void InEverySetting(Check check) {
    for (const uint32_t rate : {32000U, 44100U, 48000U})
        for (const uint32_t channels : {1U, 2U})
            for (const Settings settings :
                 {Settings::kOff, Settings::kOn, Settings::kLowest, Settings::kHighest}) {
                SCOPED_TRACE(testing::Message() << rate << " Hz, " << channels << ", setting "
                                                << static_cast<int>(settings));
                Instance instance;
                Prepare(instance, rate, channels, settings);
                check(instance);
            }
}

TEST(RealTime, EveryCallLocksOnceAndUnlocksOnce) {
    InEverySetting([](Instance& instance) {
        const bool allRight = AudioThread(instance, [](auto call) {
            locks = unlocks = 0;
            InRealTime(call);
            const int locked = locks, unlocked = unlocks;
            EXPECT_EQ(locked, 1);
            EXPECT_EQ(unlocked, 1);
        });
        EXPECT_TRUE(allRight);
    });
}

// From here on the kernel ends this thread's process with SIGSYS at any call but an exit.
bool ForbidSystemCalls() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
    };
    const sock_fprog filter = {std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

// How a child ends that runs `body` without system calls; its status is 0 if body returns true.
template <typename Body>
int EndWithoutSystemCalls(Body body) {
    const pid_t child = fork();
    if (child == 0) syscall(SYS_exit, !ForbidSystemCalls() ? 2 : body() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    return status;
}

TEST(RealTime, NoSystemCall) {
    const int harmless = EndWithoutSystemCalls([] { return syscall(SYS_getppid) > 0; });
    ASSERT_TRUE(WIFSIGNALED(harmless) && WTERMSIG(harmless) == SIGSYS) << "the filter is at work";
    InEverySetting([](Instance& instance) {
        const int status =
            EndWithoutSystemCalls([&] { return AudioThread(instance, [](auto call) { call(); }); });
        EXPECT_FALSE(WIFSIGNALED(status)) << "signal " << WTERMSIG(status);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    });
}

}  // namespace
