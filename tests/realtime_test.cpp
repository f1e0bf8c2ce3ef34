// Tests that each call on the audio thread locks once, unlocks once and makes no system call. No
// thread may write a log line while it holds the lock, because the audio thread would then wait for
// the reader of the log. The allocation tests check that nothing is allocated or freed.
//
// The executable's pthread_mutex_lock, pthread_mutex_unlock and write replace the platform's, also
// for the loaded library. This write counts log lines, one for each call, and discards them. If
// this is built with clang's real-time sanitizer (clang 20 or later,
// scripts/realtime-sanitizer.sh), each call also runs under it.
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>

#include "library_under_test.h"
#include "without_system_calls.h"

namespace {

int locks = 0, unlocks = 0, lines = 0, linesUnderLock = 0;

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
// Discards log lines without a system call.
ssize_t write(int fd, const void* buf, size_t n) {
    if (fd == STDERR_FILENO) {
        ++lines;
        if (locks != unlocks) ++linesUnderLock;
        return static_cast<ssize_t>(n);
    }
    return syscall(SYS_write, fd, buf, n);
}
// Defined by the sanitizer; null without it.
// NOLINTBEGIN(bugprone-reserved-identifier): its names
__attribute__((weak)) void __rtsan_realtime_enter();
__attribute__((weak)) void __rtsan_realtime_exit();
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

constexpr uint32_t kLongest = 2048;
const std::vector<int16_t> in = NoiseSamples(size_t{2} * kLongest, 32767);
std::vector<int16_t> out(in.size());

// Makes every kind of call that arrives on the audio thread. Returns how many calls failed, or did
// not lock once and unlock once, or wrote a log line in between.
int AudioThread(Instance& instance) {
    int wrong = 0;
    const auto call = [&wrong](auto body) {
        locks = unlocks = linesUnderLock = 0;
        if (__rtsan_realtime_enter != nullptr) __rtsan_realtime_enter();
        const int32_t status = body();
        if (__rtsan_realtime_exit != nullptr) __rtsan_realtime_exit();
        if (status != 0 || locks != 1 || unlocks != 1 || linesUnderLock != 0) ++wrong;
    };
    const auto process = [&](uint32_t frames) {
        call([&] { return instance.Process(in.data(), out.data(), frames); });
    };
    for (const uint32_t frames : {1U, 255U, 770U, 771U, 1024U, kLongest})
        for (int repetition = 0; repetition < 4; ++repetition) process(frames);
    call([&] { return instance.Disable(); });
    call([&] { return instance.Enable(); });
    process(kLongest);
    call([&] { return instance.Reset(), 0; });
    int32_t mode[] = {0, 4, 4, PARAM_SET_MODE, 1};
    call([&] { return instance.Command(EFFECT_CMD_SET_PARAM, sizeof mode, mode); });
    process(kLongest);
    return wrong;
}

TEST(RealTime, EveryCallLocksOnceAndAsksTheKernelForNothing) {
    const int harmless = EndWithoutSystemCalls([] { return syscall(SYS_getppid); });
    ASSERT_TRUE(WIFSIGNALED(harmless) && WTERMSIG(harmless) == SIGSYS) << "the filter is at work";
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_mutex_lock(&mutex);
    ASSERT_EQ(write(STDERR_FILENO, "", 0), 0);
    pthread_mutex_unlock(&mutex);
    ASSERT_EQ(linesUnderLock, 1) << "lines under the lock are counted";
    for (const uint32_t rate : {32000U, 44100U, 48000U})
        for (const uint32_t channels : {1U, 2U})
            for (const int32_t value : {INT32_MIN, 100, INT32_MAX}) {
                Instance instance;
                locks = unlocks = lines = linesUnderLock = 0;
                instance.Configure(rate, channels);
                EXPECT_EQ(lines, 9 + (rate != 44100) + (channels != 2)) << "all are written";
                instance.Configure(96000, channels);
                instance.Start(rate, channels);
                instance.SetEveryValue(value);
                EXPECT_GT(lines, 30);
                EXPECT_EQ(linesUnderLock, 0) << "of " << lines << " lines";
                // Skipped under the real-time sanitizer, which makes system calls itself.
                if (__rtsan_realtime_enter == nullptr) {
                    EXPECT_EQ(EndWithoutSystemCalls([&] { return AudioThread(instance); }), 0);
                }
                EXPECT_EQ(AudioThread(instance), 0) << rate << ' ' << channels << ' ' << value;
            }
}

}  // namespace
