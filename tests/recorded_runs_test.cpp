// Plays the recorded runs of tests/data/runs through the shared library. Compares the digest of all
// output samples with that of an independent implementation.
//
// A run is a list of calls on one new instance. The calls are `configure RATE CHANNELS`,
// `command CODE`, `set ID VALUES`, `get ID VALUE` and `process FRAMES COUNT`. `configure` also
// restarts the input. The input is stereo; mono runs read channel 0. Every second buffer is
// processed in place. If the environment variable ORVANE_RUN_OUTPUT names a folder, the samples are
// written there, to find the first that differs.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "library_under_test.h"

namespace {

using Samples = std::vector<int16_t>;

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

}  // namespace
