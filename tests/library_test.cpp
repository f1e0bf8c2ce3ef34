// Plays recorded runs through the shared library, sends commands of every size, and uses instances
// from many threads at once.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <string>
#include <thread>

#include "client/library_file.h"
#include "client/stderr_silencer.h"
#include "fake_device.h"
#include "later_loader.h"
#include "library_under_test.h"
#include "routine_call.h"

namespace {

using Samples = std::vector<int16_t>;

// The runs of tests/data/runs. Their digests of all output samples are those of an independent
// implementation.
//
// A run is a list of calls on one new instance. The calls are `configure RATE CHANNELS`,
// `command CODE`, `set ID VALUES`, `get ID VALUE` and `process FRAMES COUNT`. `configure` also
// restarts the input. The input is stereo; mono runs read channel 0. Every second buffer is
// processed in place. If the environment variable ORVANE_RUN_OUTPUT names a folder, the samples are
// written there, to find the first that differs.
const std::string kData = ORVANE_TEST_DATA;

uint64_t Fnv1a(const Samples& samples) {
    uint64_t digest = 14695981039346656037U;
    const auto* const bytes = reinterpret_cast<const unsigned char*>(samples.data());
    for (size_t i = 0; i < 2 * samples.size(); ++i) digest = (digest ^ bytes[i]) * 1099511628211U;
    return digest;
}

struct RecordedRun {
    std::string name;
    size_t samples;
    uint64_t digest;
    std::vector<std::string> calls;
};

std::vector<RecordedRun> ReadRuns() {
    std::ifstream file(kData + "/runs");
    std::vector<RecordedRun> runs;
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string verb;
        words >> verb;
        if (verb == "run") {
            RecordedRun& run = runs.emplace_back();
            words >> run.name >> run.samples >> std::hex >> run.digest;
        } else if (!runs.empty()) {
            runs.back().calls.push_back(line);
        }
    }
    return runs;
}

Samples Play(const std::vector<std::string>& calls, const Samples& input) {
    Instance instance;
    size_t channels = 2, position = 0;  // in frames
    Samples output;
    for (const std::string& line : calls) {
        std::istringstream words(line.substr(0, line.find('#')));
        std::string verb;
        words >> verb;
        std::vector<int32_t> v;
        for (std::string word; words >> word;)
            v.push_back(static_cast<int32_t>(std::stoll(word, nullptr, 0)));
        if (verb == "configure") {
            channels = static_cast<size_t>(v.at(1));
            position = 0;
            effect_config_t config =
                MakeConfig(static_cast<uint32_t>(v[0]), static_cast<uint32_t>(v[1]));
            config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_ACCUMULATE;  // must have no effect
            EXPECT_EQ(instance.Configure(config), 0);
        } else if (verb == "command") {
            instance.Command(static_cast<uint32_t>(v.at(0)));
        } else if (verb == "set") {
            EXPECT_EQ(instance.Set(PackSet(v.at(0), &v[1], v.size() - 1)), 0);
        } else if (verb == "get") {
            EXPECT_EQ(instance.Get(v.at(0)), v.at(1));
        } else if (verb == "process") {
            const auto frames = static_cast<uint32_t>(v.at(0));
            for (int32_t call = 0; call < v.at(1); ++call, position += frames) {
                Samples in(frames * channels), out(in.size(), 0x5555);
                for (size_t i = 0; i < in.size(); ++i)
                    in[i] = input[2 * (position + i / channels) % input.size() + i % channels];
                Samples& result = call % 2 == 0 ? out : in;
                EXPECT_EQ(instance.Process(in.data(), result.data(), frames), 0);
                output.insert(output.end(), result.begin(), result.end());
            }
        } else {
            EXPECT_EQ(verb, "");
        }
    }
    return output;
}

TEST(RecordedRuns, EverySampleIsTheRecordedOne) {
    std::ifstream music(kData + "/input.s16", std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(music), {}};
    Samples input(bytes.size() / 2);
    std::memcpy(input.data(), bytes.data(), 2 * input.size());
    const std::vector<RecordedRun> runs = ReadRuns();
    EXPECT_EQ(runs.size(), 4U);
    for (const RecordedRun& run : runs) {
        SCOPED_TRACE(run.name);
        const Samples output = Play(run.calls, input);
        EXPECT_EQ(output.size(), run.samples);
        EXPECT_EQ(Fnv1a(output), run.digest);
        if (const char* folder = std::getenv("ORVANE_RUN_OUTPUT"))
            std::ofstream(std::string(folder) + "/" + run.name + ".s16", std::ios::binary)
                .write(reinterpret_cast<const char*>(output.data()),
                       static_cast<std::streamsize>(2 * output.size()));
    }
}

constexpr uint32_t kCodes = 28, kCommandSizes = 142, kReplySizes = 43;
constexpr size_t kMargin = 64;  // bytes before the reply
constexpr unsigned char kFill = 0xA5;

// One call and the reply that it must give.
struct Call {
    uint32_t code, size, record;  // record: size of a complete record in bytes
    uint32_t offered;
    bool withSize, withBlock;

    // Returns the bytes of the reply, 0 if it does not fit, -1 if there is none.
    int Bytes() const {
        const uint32_t room = withBlock ? offered : 0;
        if (code == EFFECT_CMD_GET_PARAM)
            return room >= 20 && size >= record ? 20 : room >= 12 ? 12 : 0;
        const bool silent = code == EFFECT_CMD_RESET || code == EFFECT_CMD_SET_PARAM_DEFERRED;
        if (silent || code > EFFECT_CMD_GET_PARAM) return -1;
        return room >= 4 ? 4 : 0;
    }
    int32_t Status() const {
        if (code == EFFECT_CMD_GET_PARAM) return Bytes() == 20 ? 0 : -22;
        const bool reads = code == EFFECT_CMD_CONFIGURE || code == EFFECT_CMD_SET_PARAM;
        return reads && size < record ? -22 : 0;
    }
};

// Sends every command code with all sizes of command and reply around the valid ones, and without a
// reply block or size. Both blocks end at unreadable memory, and the command's cannot be written.
// An access outside crashes the test.
TEST(Sweep, NoCommandLeavesItsBlocksAndEveryReplyFits) {
    const StderrSilencer muted;
    Instance instance;
    GuardedBlock command(kCommandSizes), reply(kMargin + kReplySizes);
    const effect_config_t config = MakeConfig(44100, 2);
    const auto send = [&](const Call& c, void* data) {
        unsigned char* const margin = reply.Last(kMargin + c.offered);
        unsigned char* const block = reply.Last(c.offered);
        std::memset(margin, kFill, kMargin + c.offered);
        uint32_t replySize = c.offered;
        const int32_t result =
            (*instance.handle)
                ->command(instance.handle, c.code, c.size, data, c.withSize ? &replySize : nullptr,
                          c.withBlock ? block : nullptr);
        int written = static_cast<int>(c.offered), status = c.Status();
        while (written > 0 && block[written - 1] == kFill) --written;
        if (written >= 4) std::memcpy(&status, block, 4);
        const int bytes = c.Bytes();
        const uint32_t sizeAfter =
            c.withSize && bytes >= 0 ? static_cast<uint32_t>(bytes) : c.offered;
        ASSERT_TRUE(result == 0 && replySize == sizeAfter && written == std::max(bytes, 0) &&
                    status == c.Status() && std::count(margin, margin + kMargin, kFill) == kMargin)
            << "code " << c.code << ", size " << c.size << ", offered " << c.offered
            << (c.withSize ? "" : ", no size") << (c.withBlock ? "" : ", no block") << ": size "
            << replySize << ", written " << written << ", status " << status;
    };
    for (uint32_t code = 0; code < kCodes; ++code) {
        for (uint32_t size = 0; size < kCommandSizes && !HasFatalFailure(); ++size) {
            unsigned char content[kCommandSizes] = {};
            const bool get = code == EFFECT_CMD_GET_PARAM, configure = code == EFFECT_CMD_CONFIGURE;
            const auto i = static_cast<int32_t>(size);
            const int32_t words[] = {
                0, 4, 4 + 4 * (i % 4), get ? PARAM_GET_VERSION : PARAM_SET_MODE + i % 12, 1, 2,
                3, 4};
            std::memcpy(content, words, sizeof words);
            if (configure) std::memcpy(content, &config, sizeof config);
            const size_t record = configure ? sizeof config : get ? 16 : 20 + 4 * (size % 4);
            void* const data = command.Hold(content, size);
            Call call = {code, size, static_cast<uint32_t>(record), 4, false, true};
            send(call, data);
            call.withSize = true;
            for (call.offered = 0; call.offered < kReplySizes; ++call.offered) send(call, data);
            call.offered = 20;
            call.withBlock = false;
            send(call, data);
        }
    }
}

// Sends a random command, usually a valid one.
void SendAnything(Instance& instance, std::mt19937& random) {
    constexpr uint32_t kRates[] = {32000, 44100, 48000, 22050};
    const auto number = [&random](int32_t limit) {
        return static_cast<int32_t>(random() % static_cast<unsigned>(limit));
    };
    const auto code = static_cast<uint32_t>(number(12));
    if (code == EFFECT_CMD_CONFIGURE) {
        // Configuring designs filters. It is rare, so that the audio thread gets its share.
        if (number(16) == 0)
            instance.Configure(kRates[number(4)], 1 + static_cast<uint32_t>(number(2)));
    } else if (code == EFFECT_CMD_SET_PARAM) {
        instance.Set(PARAM_SET_MODE + number(12), {number(10), number(200) - 99});
        instance.Set(PARAM_SET_TIMESTAMP_ENABLE, {1});
    } else if (code == EFFECT_CMD_GET_PARAM) {
        instance.Get(PARAM_GET_VERSION + number(8));
    } else {
        instance.Command(code);
        if (code == EFFECT_CMD_DISABLE) instance.Enable();
    }
}

// Looks the effect up, creates an instance and destroys it, whatever the marker says meanwhile.
// Returns how many descriptors were neither of the two possible ones.
int ComeAndGo() {
    effect_descriptor_t seen[3] = {};
    const Instance instance;
    LoadedLibrary().get_descriptor(&kOrvaneUuid, &seen[0]);
    if (LoadedLibrary().query_effect == nullptr)  // not in interface 3.0
        seen[1] = seen[0];
    else
        LoadedLibrary().query_effect(0, &seen[1]);
    (*instance.handle)->get_descriptor(instance.handle, &seen[2]);
    return static_cast<int>(std::count_if(seen, seen + 3, [](const effect_descriptor_t& d) {
        return d.type.timeLow != kOrvaneType.timeLow && d.type.timeLow != kBassBoostType.timeLow;
    }));
}

// This is most useful under the thread sanitizer.
TEST(Threads, InstancesDontDisturbEachOtherAndCallsOnOneAreSerialised) {
    const char* const wanted = std::getenv("ORVANE_THREADS_SECONDS");
    const std::chrono::seconds duration(wanted != nullptr ? std::atoi(wanted) : 2);
    const StderrSilencer muted;
    const Samples noise = NoiseSamples(20000, 12000);
    Instance untouched, shared;
    untouched.Start(44100, 2);
    shared.Start(44100, 2);
    const Samples expected = untouched.Run(noise, 300, 2);

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0}, processed{0}, created{0};
    std::vector<std::thread> threads;
    const auto loop = [&](auto body) {
        threads.emplace_back([&stop, body, seed = threads.size()] {
            std::mt19937 random(static_cast<unsigned>(seed));
            while (!stop) body(random);
        });
    };
    loop([&](std::mt19937& random) {
        Samples out(4096);
        const int32_t status =
            shared.Process(noise.data(), out.data(), static_cast<uint32_t>(random() % 2049));
        if (status == 0) ++processed;
        if (status != 0 && status != -61) ++wrong;
    });
    for (int i = 0; i < 2; ++i)
        loop([&](std::mt19937& random) {
            SendAnything(shared, random);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        });
    for (int i = 0; i < 2; ++i) loop([&](std::mt19937&) { wrong += ComeAndGo(), ++created; });
    loop([](std::mt19937&) {
        device.markerExists = !device.markerExists;
        std::this_thread::yield();
    });

    const auto end = std::chrono::steady_clock::now() + duration;
    do {
        untouched.Reset();
        if (untouched.Run(noise, 300, 2) != expected) ++wrong;
    } while (std::chrono::steady_clock::now() < end || processed == 0 || created == 0);
    stop = true;
    for (std::thread& thread : threads) thread.join();
    device.markerExists = false;
    EXPECT_EQ(wrong, 0);

    // After a reset, the earlier calls on the shared instance have no effect.
    shared.Start(44100, 2);
    shared.Reset();
    EXPECT_TRUE(shared.Run(noise, 300, 2) == expected);
}

// The library of interface 3.0, as the loaders and media servers of Android 4.3 to 13 use it. The
// environment variable ORVANE_LIBRARY names the file.
TEST(LaterLoader, LoadsTheFileAndRefusesOthers) {
    const std::string path = std::getenv("ORVANE_LIBRARY");
    const LaterLibrary later(path);
    ASSERT_EQ(later.Fault(), "");
    EXPECT_STREQ(later.Record().name, "Quenthra Orvane v2");
    EXPECT_STREQ(later.Record().implementor, "Hollin.RDT");
    EXPECT_EQ(LaterLibrary(ORVANE_LIBRARY_PATH).Fault(), "the library interface isn't 3");
    EXPECT_EQ(LibraryFile(path).Fault(),
              path + " is made for another version of the effect interface");
}

TEST(LaterLoader, RefusesWhatAMediaServerWantsFirstAndPlays16BitStereo) {
    constexpr uint32_t kStereo = 0x3, kSixChannels = 0x3F;
    constexpr uint8_t k16Bit = 1, kFloat = 5;
    const struct {
        uint32_t rateHz, channelMask;
        uint8_t format;
    } offers[] = {{96000, kSixChannels, kFloat}, {96000, kStereo, kFloat},
                  {96000, kStereo, k16Bit},      {48000, kSixChannels, kFloat},
                  {48000, kStereo, kFloat},      {48000, kSixChannels, k16Bit},
                  {48000, kStereo, k16Bit}};
    Instance instance, plain;
    plain.Start(48000, 2);
    instance.Initialise();
    const std::vector<int16_t> noise = NoiseSamples(9000, 20000);
    std::vector<int16_t> out(noise.size());
    const auto process = [&] {
        LaterBuffer from = {noise.size() / 2, noise.data()}, to = {noise.size() / 2, out.data()};
        return (*instance.handle)
            ->process(instance.handle, reinterpret_cast<audio_buffer_s*>(&from),
                      reinterpret_cast<audio_buffer_s*>(&to));
    };
    for (const auto& offer : offers) {
        LaterConfig side = {{}, offer.rateHz, offer.channelMask, {}, offer.format, 1, 0x1E};
        LaterConfig both[2] = {side, side};
        both[1].accessMode = 0;
        const bool accepted = &offer == std::end(offers) - 1;
        EXPECT_EQ(instance.Command(EFFECT_CMD_CONFIGURE, sizeof both, both), accepted ? 0 : -22);
        instance.SwitchEverythingOn();
        instance.Enable();
        EXPECT_EQ(process(), accepted ? 0 : -61) << offer.rateHz << ' ' << offer.channelMask;
    }
    EXPECT_TRUE(out == plain.Run(noise, static_cast<uint32_t>(noise.size() / 2), 2));
}

}  // namespace
