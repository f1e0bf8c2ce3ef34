// Helpers of the renderer's tests. They write files and run the program on them.
#pragma once
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numbers>
#include <optional>
#include <sndfile.hh>
#include <string>
#include <utility>
#include <vector>

#include "client/json.h"

namespace fs = std::filesystem;
using Floats = std::vector<float>;  // interleaved samples, full scale 1.0

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int kFlac16 = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;

inline std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Returns the same sine on every channel.
inline Floats Sine(double amplitude, double frequencyHz, int rateHz, size_t channels,
                   double seconds) {
    Floats samples;
    for (int n = 0; n < static_cast<int>(seconds * rateHz); ++n) {
        const double sine = std::sin(2 * std::numbers::pi * frequencyHz * n / rateHz);
        samples.insert(samples.end(), channels, static_cast<float>(amplitude * sine));
    }
    return samples;
}

template <typename Sample>
void Write(const std::string& path, const std::vector<Sample>& samples, int rateHz, int channels,
           int format = kWav16) {
    SndfileHandle file(path, SFM_WRITE, format, channels, rateHz);
    file.setString(SF_STR_TITLE, "'Round Midnight");
    file.setString(SF_STR_COMMENT, "a comment that is long enough");
    file.write(samples.data(), static_cast<sf_count_t>(samples.size()));
}

template <typename Sample = float>
std::vector<Sample> Read(const std::string& path) {
    SndfileHandle file(path);
    std::vector<Sample> samples(static_cast<size_t>(file.frames() * file.channels()));
    file.read(samples.data(), static_cast<sf_count_t>(samples.size()));
    return samples;
}

// Runs a shell line that calls the program as $ORVANE. Its output goes to the files out and err.
// Returns its exit status.
inline int Shell(const std::string& line) {
    const int status = std::system(("{ " + line + "; } >out 2>err").c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Expects that the last command printed exactly one line. The failure message shows `line`.
inline void ExpectOneLine(const std::string& line) {
    const std::string said = Slurp("out") + Slurp("err");
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << line << ": " << said;
}

// A value of a report.
class Json {
public:
    explicit Json(const std::string& text) : value(JsonValue::Parse(text)) {
        EXPECT_FALSE(value.IsNull()) << "no JSON: " << text;
    }
    // Returns the objects of a text in which several follow each other.
    static std::vector<Json> All(const std::string& text) {
        const std::string end = "\n}\n";
        std::vector<Json> values;
        for (size_t at = 0, next = 0; at < text.size(); at = next) {
            next = std::min(text.find(end, at), text.size() - end.size()) + end.size();
            values.emplace_back(text.substr(at, next - at));
        }
        return values;
    }

    Json operator[](const char* key) const {
        EXPECT_TRUE(value.Has(key)) << key;
        return Json(value[key]);
    }
    std::vector<Json> Elements() const {  // of an array
        std::vector<Json> elements;
        for (const JsonValue& element : value.Elements()) elements.push_back(Json(element));
        return elements;
    }
    size_t Size() const { return value.Elements().size(); }
    // A number; 0 or 1 for false or true; NaN for all others.
    operator double() const {
        const std::optional<bool> isOn = value.Switch();
        return isOn ? *isOn : value.Number().value_or(NAN);
    }
    std::string String() const { return value.Text().value_or("no text"); }  // without quotes
    std::string Text() const { return value.OneLine(); }                     // as JSON
    friend bool operator==(const Json& a, const Json& b) { return a.Text() == b.Text(); }

private:
    explicit Json(JsonValue wanted) : value(std::move(wanted)) {}
    JsonValue value;
};

// Renders, expects the exit status `status`, and returns the report.
inline Json Report(const std::string& arguments, const std::string& preset = "--preset off ",
                   int status = 0) {
    EXPECT_EQ(Shell("$ORVANE render -f --json " + preset + arguments), status) << Slurp("err");
    return Json(Slurp("out"));
}

inline auto FilesHere() {
    return std::distance(fs::directory_iterator("."), fs::directory_iterator());
}

// Each test runs the program in its own empty folder.
struct Renderer : testing::Test {
    Renderer() {
        setenv("ORVANE", ORVANE_PROGRAM, 1);
        fs::current_path(mkdtemp(folder.data()));
    }
    ~Renderer() override {
        fs::current_path("/");
        fs::remove_all(folder);
    }
    std::string folder = fs::temp_directory_path() / "orvane-XXXXXX";
};
