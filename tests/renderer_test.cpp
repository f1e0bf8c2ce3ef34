// The renderer from end to end: the program is run on files made here.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <numbers>
#include <string>

#include "tests/framework_client.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr int kWav16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;

// Interleaved, full scale 1.0.
struct Audio {
    SF_INFO info{};
    std::vector<float> samples;
    std::string title;
};

std::string Slurp(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<float> Floats(const std::vector<int16_t>& pcm) {
    std::vector<float> floats(pcm.begin(), pcm.end());
    for (float& sample : floats) sample /= 32768.0f;
    return floats;
}

// The same sine on every channel.
std::vector<float> Sine(double amplitude, double frequencyHz, int rateHz, int channels,
                        double seconds) {
    std::vector<float> samples;
    for (int n = 0; n < static_cast<int>(seconds * rateHz); ++n)
        samples.insert(samples.end(), static_cast<size_t>(channels),
                       static_cast<float>(
                           amplitude * std::sin(2 * std::numbers::pi * frequencyHz * n / rateHz)));
    return samples;
}

// Every test has an empty folder of its own and runs the program in it.
class Renderer : public testing::Test {
protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "orvane-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        fs::current_path(pattern);
        setenv("ORVANE", ORVANE_PROGRAM, 1);
    }
    void TearDown() override {
        const fs::path folder = fs::current_path();
        fs::current_path("/");
        fs::remove_all(folder);
    }

    static void Write(const std::string& path, const std::vector<float>& samples, int rateHz,
                      int channels, int format = kWav16) {
        SF_INFO info{};
        info.samplerate = rateHz;
        info.channels = channels;
        info.format = format;
        SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << path;
        sf_set_string(file, SF_STR_TITLE, "A title");
        sf_set_string(file, SF_STR_COMMENT, "a comment that is long enough");
        sf_write_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
        sf_close(file);
    }

    static Audio Read(const std::string& path) {
        Audio audio;
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &audio.info);
        EXPECT_NE(file, nullptr) << path;
        if (file == nullptr) return audio;
        const char* title = sf_get_string(file, SF_STR_TITLE);
        if (title != nullptr) audio.title = title;
        audio.samples.resize(static_cast<size_t>(audio.info.frames * audio.info.channels));
        sf_readf_float(file, audio.samples.data(), audio.info.frames);
        sf_close(file);
        return audio;
    }

    // The exit status of a line that calls the program $ORVANE. Output goes to files out and err.
    static int Shell(const std::string& line) {
        const int status = std::system(("{ " + line + "; } >out 2>err").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    // Renders and gives the report.
    static Json Report(const std::string& arguments) {
        EXPECT_EQ(Shell("$ORVANE render -f --json " + arguments), 0) << Slurp("err");
        return Json::parse(Slurp("out"));
    }

    static size_t FilesHere() {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator("."), fs::directory_iterator()));
    }
};

TEST_F(Renderer, AlignsTheOutputForAnyBufferAndSettings) {
    constexpr size_t kFrames = 20000, kImpulse = 9000;
    std::vector<float> samples(2 * kFrames);
    samples[2 * kImpulse] = samples[2 * kImpulse + 1] = 0.6f;
    Write("in.wav", samples, 44100, 2);
    struct Case {
        const char* settings;
        size_t delay;
        bool enhancer;
    };
    const Case cases[] = {{"", 255, false},
                          {"--playback-gain --ratio 0", 510, false},
                          {"--eq 9=0.2", 511, false},
                          {"--enhancer", 382, true},
                          {"--playback-gain --ratio 0 --eq 9=0.5 --enhancer", 893, true}};
    // Silent frames that the enhancer's blocks put into the stream, by buffer size.
    const std::pair<size_t, size_t> blocks[] = {{64, 768}, {100, 800}, {256, 768},   {512, 1024},
                                                {770, 0},  {771, 771}, {1024, 1024}, {5000, 5000}};
    for (const Case& one : cases)
        for (const auto& [buffer, silent] : blocks)
            for (const bool keep : {false, true}) {
                const std::string options = std::string(one.settings) + " --buffer " +
                                            std::to_string(buffer) + (keep ? " --keep-delay" : "");
                const size_t delay = one.delay + (one.enhancer ? silent : 0);
                EXPECT_EQ(Report("--preset off " + options + " in.wav out.wav")["delayFrames"],
                          delay)
                    << options;
                const std::vector<float> result = Read("out.wav").samples;
                EXPECT_EQ(result.size(), 2 * (kFrames + (keep ? delay : 0))) << options;
                const auto peak = std::max_element(result.begin(), result.end());
                EXPECT_EQ((peak - result.begin()) / 2,
                          static_cast<ptrdiff_t>(kImpulse + (keep ? delay : 0)))
                    << options;
            }
}

TEST_F(Renderer, GivesTheBitsOfTheLibraryHoweverTheInputArrives) {
    constexpr size_t kFrames = size_t{30} * 777;
    Write("in.wav", Floats(NoiseSamples(2 * kFrames, 32767)), 48000, 2);
    std::vector<int16_t> pcm;
    for (const float sample : Read("in.wav").samples)
        pcm.push_back(static_cast<int16_t>(sample * 32768));
    pcm.resize(2 * kFrames + size_t{4} * 2 * 777);  // silence pushes the rest out
    Instance instance;
    instance.Start(48000, 2);
    const std::vector<float> expected = Floats(instance.Run(pcm, 777, 2));
    const std::string options =
        " --keep-delay --buffer 777 -f -q --playback-gain --ratio 1.5 --volume 1.3 --max-gain 4"
        " --enhancer --process 1.8 --lo-contour 0.7 --output-gain 1.4 --gate 0.8"
        " --eq -0.6,-0.45,-0.3,-0.15,0,0,0,0,0,0 --eq 5=0.15,6=0.3 --eq 7=0.45,8=0.6,9=0.75";
    for (const char* line :
         {"$ORVANE render in.wav out.wav", "$ORVANE render in.wav out.flac && mv out.flac out.wav",
          "cat in.wav | $ORVANE render - out.wav",
          "(head -c 5001 in.wav; sleep 0.1; tail -c +5002 in.wav) | $ORVANE render - - >out.wav"}) {
        std::string command = line;
        command.insert(command.find("render") + 6, options);
        EXPECT_EQ(Shell(command), 0) << Slurp("err");
        EXPECT_EQ(Slurp("err"), "") << line;
        const std::vector<float> result = Read("out.wav").samples;
        ASSERT_GT(result.size(), 2 * kFrames) << line;
        EXPECT_TRUE(std::equal(result.begin(), result.end(), expected.begin())) << line;
    }
}

TEST_F(Renderer, WritesTheFormatOfTheEndingAtTheRateAndLengthOfTheInput) {
    struct Case {
        const char* output;
        int inputRateHz;
        int format, rateHz;
        bool titled;
    };
    const Case cases[] = {
        {"a.wav", 44100, kWav16, 44100, true},
        {"a.flac", 48000, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 48000, true},
        {"a.AIFF", 32000, SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 32000, true},
        {"a.au", 44100, SF_FORMAT_AU | SF_FORMAT_PCM_16, 44100, false},
        {"a.ogg", 44100, SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100, true},
        {"a.mp3", 44100, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100, true},
        {"a.opus", 44100, SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000, true},
        {"b.wav", 22050, kWav16, 22050, true},
        {"b.flac", 96000, SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 96000, true},
        {"c.wav", 50001, kWav16, 50001, true},
    };
    for (const Case& one : cases) {
        // Two seconds and a bit (odd at 96000 Hz), fading in and out, so that no resampler sees a
        // step.
        std::vector<float> sine = Sine(0.5, 1000, one.inputRateHz, 1, 2.01727);
        const auto last = static_cast<float>(sine.size() - 1);
        for (size_t n = 0; n < sine.size(); ++n) {
            const float middle = 1 - 2 * static_cast<float>(n) / last;
            sine[n] *= 1 - middle * middle;
        }
        Write("in.wav", sine, one.inputRateHz, 1);
        const Json report = Report(std::string("--preset off in.wav ") + one.output);
        const Audio result = Read(one.output);
        EXPECT_EQ(result.info.format, one.format) << one.output;
        EXPECT_EQ(result.info.samplerate, one.rateHz) << one.output;
        EXPECT_EQ(result.title == "A title", one.titled) << one.output;
        EXPECT_EQ(result.samples.size(), (sine.size() * static_cast<size_t>(one.rateHz) +
                                          static_cast<size_t>(one.inputRateHz) / 2) /
                                             static_cast<size_t>(one.inputRateHz))
            << one.output;
        const bool resampled = report["chainRateHz"] != one.inputRateHz;
        EXPECT_EQ(resampled, one.inputRateHz < 32000 || one.inputRateHz > 48000);
        EXPECT_EQ(report["notes"].size(), resampled || one.rateHz != one.inputRateHz ? 1 : 0);
        // Sample by sample, where nothing lossy and no other rate lies between.
        if (one.output[2] == 'o' || one.output[2] == 'm') continue;
        double worst = 0;
        for (size_t n = 0; n < sine.size(); ++n)
            worst = std::max<double>(worst, std::abs(result.samples[n] - 0.998f * sine[n]));
        EXPECT_LT(worst, 0.0005) << one.output;  // one frame off would be 0.03
        EXPECT_EQ(Shell("$ORVANE render -f --strict-rate in.wav no.wav"), resampled ? 1 : 0);
    }
}

TEST_F(Renderer, DithersWhatIsLongerAndCountsWhatClips) {
    // A third of a step of 16 bits: dither keeps it, rounding loses it.
    const std::vector<float> soft = Sine(0.33 / 32768, 441, 44100, 1, 2);
    Write("soft.wav", soft, 44100, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    EXPECT_TRUE(Report("--preset off --output-gain 16 soft.wav out.wav")["dithered"]);
    const std::vector<float> kept = Read("out.wav").samples;
    double product = 0, energy = 0;
    for (size_t n = 0; n < soft.size(); ++n) {
        product += double{soft[n]} * kept[n];
        energy += double{soft[n]} * soft[n];
    }
    EXPECT_NEAR(product / energy, 15, 0.5);  // 15.97 cut to whole steps
    EXPECT_FALSE(Report("--preset off --output-gain 16 --no-dither soft.wav out.wav")["dithered"]);
    const std::vector<float> lost = Read("out.wav").samples;
    EXPECT_EQ(lost, std::vector<float>(lost.size()));

    const std::vector<float> hot = Sine(2, 997, 44100, 2, 1);
    Write("hot.wav", hot, 44100, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    const auto beyond =
        std::count_if(hot.begin(), hot.end(), [](float sample) { return std::abs(sample) > 1; });
    EXPECT_EQ(Report("--preset off hot.wav out.wav")["clippedIn"], beyond);
    const std::vector<float> held = Read("out.wav").samples;
    for (size_t n = 0; n < hot.size(); ++n)
        if (hot[n] > 1) {
            ASSERT_GT(held[n], 0.9f) << n;  // neither wrapped nor silent
        }
}

TEST_F(Renderer, ReportsWhatItDid) {
    // EBU Tech 3341, test 1: this sine on both channels has -23 LUFS.
    Write("in.flac", Sine(std::pow(10, -23.0 / 20), 1000, 48000, 2, 3), 48000, 2,
          SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const Json report = Report("--preset off --output-gain 0.29 in.flac out.wav");
    EXPECT_NEAR(report["loudnessLufs"]["before"], -23.0, 0.1);
    EXPECT_NEAR(report["loudnessLufs"]["after"], -33.8, 0.1);
    EXPECT_NEAR(report["truePeakDb"]["before"], -23.0, 0.1);
    EXPECT_EQ(report["settings"]["output-gain"], 0.29);
    EXPECT_FALSE(report["dithered"]);
    EXPECT_EQ(report["clippedIn"], 0);
    EXPECT_EQ(report["frames"], 144000);
    EXPECT_TRUE(report["notes"].empty()) << report["notes"];

    // The tag is written over the comment, which is as long.
    std::string bytes = Slurp("in.flac");
    const std::string comment = "comment=a comment that is long enough";
    std::string tag = "REPLAYGAIN_TRACK_GAIN=-6.00 dB";
    tag.resize(comment.size(), ' ');
    ASSERT_NE(bytes.find(comment), std::string::npos);
    bytes.replace(bytes.find(comment), comment.size(), tag);
    std::ofstream("in.flac", std::ios::binary) << bytes;
    EXPECT_EQ(Report("in.flac out.flac --ratio 2")["notes"].size(), 2);  // --ratio is idle, too
    EXPECT_EQ(Slurp("out.flac").find("REPLAYGAIN"), std::string::npos);

    EXPECT_EQ(Shell("$ORVANE render -f in.flac out.wav"), 0);
    EXPECT_NE(Slurp("err").find("-23.0 LUFS before"), std::string::npos) << Slurp("err");
    EXPECT_EQ(Slurp("err").find("Quenthra_v2:"), std::string::npos);
    EXPECT_EQ(Shell("$ORVANE render -f --log in.flac out.wav"), 0);
    EXPECT_NE(Slurp("err").find("Quenthra_v2:"), std::string::npos);

    EXPECT_EQ(Shell("$ORVANE info"), 0);
    EXPECT_NE(Slurp("out").find("2.1.0.2"), std::string::npos);
    EXPECT_EQ(Shell("$ORVANE info --markdown"), 0);
    EXPECT_NE(Slurp("out").find("| 0x2000C | `PARAM_LIMITER_GATE` |"), std::string::npos);
}

TEST_F(Renderer, RefusesInOneLineAndTouchesNothing) {
    Write("in.wav", Sine(0.5, 1000, 44100, 2, 0.1), 44100, 2);
    Write("six.wav", Sine(0.5, 1000, 44100, 6, 0.1), 44100, 6);
    Write("in.flac", Sine(0.5, 1000, 44100, 2, 0.1), 44100, 2, SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    std::ofstream("old.wav") << "old";
    const std::pair<const char*, int> cases[] = {
        {"render missing.wav old.wav -f", 1},
        {"render old.wav new.wav", 1},
        {"render in.wav old.wav", 1},
        {"render in.wav new.wav --picture old.wav", 1},
        {"render six.wav new.wav", 1},
        {"render in.wav nowhere/new.wav", 1},
        {"render in.wav new.wav --library in.wav", 1},
        {"render - new.wav -f <in.wav --preset off --picture new.wav", 2},
        {"render in.wav new.doc", 2},
        {"render in.wav", 2},
        {"render in.wav new.wav --loudness 3", 2},
        {"render in.wav new.wav --ratio 11", 2},
        {"render in.wav new.wav --ratio much", 2},
        {"render in.wav new.wav --eq 10=0.5", 2},
        {"render in.wav new.wav --eq 0,1", 2},
        {"render in.wav new.wav --eq 0=0.1,1", 2},
        {"render in.wav new.wav --enhancer=perhaps", 2},
        {"render in.wav new.wav --preset none", 2},
        {"render in.wav new.wav --buffer 0", 2},
        {"render in.wav - --json", 2},
        {"", 2},
    };
    const size_t files = FilesHere() + 2;  // out and err
    for (const auto& [arguments, status] : cases) {
        EXPECT_EQ(Shell(std::string("$ORVANE ") + arguments), status) << arguments;
        const std::string said = Slurp("err");
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << arguments << ": " << said;
        EXPECT_EQ(Slurp("old.wav"), "old") << arguments;
        EXPECT_EQ(FilesHere(), files) << arguments;
    }
    // Without a plotter the picture fails when the audio is finished, too late to keep it.
    EXPECT_EQ(Shell("PATH=/ $ORVANE render in.wav new.wav --picture new.png"), 1);
    EXPECT_EQ(FilesHere(), files);
    EXPECT_EQ(Shell("cat in.flac | $ORVANE render - new.wav"), 1);
    EXPECT_NE(Slurp("err").find("FLAC"), std::string::npos) << Slurp("err");
    EXPECT_EQ(Shell("$ORVANE render in.wav in.wav -f --preset off"), 0);
    EXPECT_EQ(Read("in.wav").samples.size(), 2 * 4410);
    EXPECT_EQ(FilesHere(), files);
}

TEST_F(Renderer, LeavesNothingBehindWhenInterrupted) {
    Write("in.wav", Sine(0.5, 1000, 44100, 2, 1), 44100, 2);
    std::array<int, 2> feed{};
    ASSERT_EQ(pipe2(feed.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(feed[0], STDIN_FILENO);
        execl(ORVANE_PROGRAM, "orvane", "render", "-", "out.wav", static_cast<char*>(nullptr));
        _exit(127);
    }
    // Less than the pipe holds, and no end.
    const std::string start = Slurp("in.wav").substr(0, 50000);
    ASSERT_EQ(write(feed[1], start.data(), start.size()), static_cast<ssize_t>(start.size()));
    for (int tries = 0; tries < 1000 && FilesHere() < 2; ++tries) usleep(10000);
    EXPECT_EQ(FilesHere(), 2);  // the temporary file
    EXPECT_FALSE(fs::exists("out.wav"));
    kill(child, SIGTERM);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(FilesHere(), 1);
}

TEST_F(Renderer, DrawsPictures) {
    Write("in.wav", Floats(NoiseSamples(size_t{2} * 44100, 10000)), 44100, 2);
    EXPECT_EQ(Shell("$ORVANE render in.wav out.wav --picture a.png"), 0) << Slurp("err");
    EXPECT_EQ(Shell("$ORVANE picture in.wav b.png"), 0) << Slurp("err");
    EXPECT_EQ(Shell("$ORVANE response c.png"), 0) << Slurp("err");
    for (const char* picture : {"a.png", "b.png", "c.png"})
        EXPECT_EQ(Slurp(picture).substr(0, 4), "\x89PNG") << picture;
    EXPECT_EQ(Slurp("a.png"), Slurp("b.png"));
}

}  // namespace
