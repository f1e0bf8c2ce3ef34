// Plays recorded scenarios through the shared library and compares every output sample, by digest,
// with what an independent implementation gave.
//
// A scenario is a list of calls on one new instance: `configure RATE CHANNELS` (and the input
// starts again), `command CODE`, `set ID VALUES`, `get ID VALUE`, `process FRAMES COUNT`. The input
// is stereo; mono runs read channel 0. With ORVANE_RUN_OUTPUT set to a folder the samples are
// written there, to find the first that differs.
#include <gtest/gtest.h>

#include <cinttypes>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "framework_client.h"

namespace {

const std::string kData = ORVANE_TEST_DATA;

std::vector<int16_t> ReadSamples(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::vector<char> bytes{std::istreambuf_iterator<char>(file), {}};
    std::vector<int16_t> samples(bytes.size() / 2);
    std::memcpy(samples.data(), bytes.data(), samples.size() * 2);
    return samples;
}

uint64_t Fnv1a(const std::vector<int16_t>& samples) {
    uint64_t digest = 14695981039346656037U;
    for (const int16_t sample : samples) {
        const auto word = static_cast<uint16_t>(sample);
        for (const unsigned byte : {word & 0xFFU, unsigned{word} >> 8U}) {
            digest ^= byte;
            digest *= 1099511628211U;
        }
    }
    return digest;
}

class Scenario {
public:
    std::vector<int16_t> Play(const std::string& name) {
        std::ifstream file(kData + "/runs/" + name + ".txt");
        EXPECT_TRUE(file) << name;
        std::string line;
        while (std::getline(file, line)) {
            std::istringstream words(line.substr(0, line.find('#')));
            std::string verb;
            if (!(words >> verb)) continue;
            std::vector<int64_t> values;
            for (std::string word; words >> word;) values.push_back(std::stoll(word, nullptr, 0));
            Call(verb, values);
        }
        return output;
    }

private:
    void Call(const std::string& verb, const std::vector<int64_t>& v) {
        const auto word = [&v](size_t i) { return static_cast<int32_t>(v.at(i)); };
        if (verb == "configure") {
            channels = static_cast<uint32_t>(v.at(1));
            position = 0;
            EXPECT_EQ(instance.Configure(static_cast<uint32_t>(v.at(0)), channels), 0);
        } else if (verb == "command") {
            instance.Command(static_cast<uint32_t>(v.at(0)));
        } else if (verb == "set") {
            const std::vector<int32_t> words(v.begin() + 1, v.end());
            EXPECT_EQ(instance.Set(PackSet(word(0), words.data(), words.size())), 0);
        } else if (verb == "get") {
            EXPECT_EQ(instance.Get(word(0)), word(1));
        } else if (verb == "process") {
            for (int64_t i = 0; i < v.at(1); ++i) Process(static_cast<uint32_t>(v.at(0)));
        } else {
            FAIL() << "unknown call " << verb;
        }
    }

    void Process(uint32_t frames) {
        std::vector<int16_t> in(size_t{frames} * channels), out(in.size(), 0x5555);
        for (size_t frame = 0; frame < frames; ++frame) {
            for (size_t c = 0; c < channels; ++c)
                in[frame * channels + c] = input[2 * position + c];
            position = (position + 1) % (input.size() / 2);
        }
        ASSERT_EQ(instance.Process(in.data(), out.data(), frames), 0);
        output.insert(output.end(), out.begin(), out.end());
    }

    const std::vector<int16_t> input = ReadSamples(kData + "/input.s16");
    Instance instance;
    uint32_t channels = 2;
    size_t position = 0;  // frames
    std::vector<int16_t> output;
};

TEST(RecordedRuns, EverySampleIsTheRecordedOne) {
    std::ifstream digests(kData + "/runs/digests");
    std::string line;
    size_t runs = 0;
    while (std::getline(digests, line)) {
        std::istringstream words(line);
        std::string name, unit;
        size_t count = 0;
        uint64_t digest = 0;
        words >> name >> count >> unit >> std::hex >> digest;
        SCOPED_TRACE(name);
        const std::vector<int16_t> output = Scenario().Play(name);
        EXPECT_EQ(output.size(), count);
        EXPECT_EQ(Fnv1a(output), digest);
        ++runs;
        if (const char* folder = std::getenv("ORVANE_RUN_OUTPUT")) {
            std::ofstream file(std::string(folder) + "/" + name + ".s16", std::ios::binary);
            file.write(reinterpret_cast<const char*>(output.data()),
                       static_cast<std::streamsize>(2 * output.size()));
        }
    }
    EXPECT_EQ(runs, 12U);
}

}  // namespace
