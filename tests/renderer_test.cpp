// Tests the renderer from end to end, by running the program on files made here.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>

#include "tests/library_under_test.h"
#include "tests/renderer_fixture.h"

namespace {

TEST_F(Renderer, AlignsTheOutputForAnyBufferAndSettings) {
    Floats samples(20000);
    samples[9000] = 0.6f;
    Write("in.wav", samples, 44100, 1);
    const std::pair<std::string, size_t> chains[] = {
        {"--playback-gain --ratio 0", 510},
        {"--eq 9=0.2", 511},
        {"--enhancer", 382},
        {"--eq 9=0.5 --playback-gain --enhancer", 893}};
    // For each buffer size, the silent frames that the enhancer's blocks insert into the stream.
    const std::pair<size_t, size_t> blocks[] = {{100, 800}, {770, 0}, {1024, 1024}, {5000, 5000}};
    for (const auto& [chain, streamDelay] : chains)
        for (const auto& [buffer, silent] : blocks)
            for (const std::string keep : {"", " --keep-delay"}) {
                const std::string options = chain + keep + " --buffer " + std::to_string(buffer);
                const size_t delay = streamDelay + (chain.ends_with("enhancer") ? silent : 0);
                EXPECT_EQ(Report(options + " in.wav out.wav")["delayFrames"], delay) << options;
                const Floats result = Read("out.wav");
                const size_t kept = keep.empty() ? 0 : delay;
                EXPECT_EQ(result.size(), 20000 + kept) << options;
                const auto peak = std::max_element(result.begin(), result.end());
                EXPECT_EQ(std::distance(result.begin(), peak), 9000 + kept) << options;
            }
}

TEST_F(Renderer, GivesTheBitsOfTheLibraryHoweverTheInputArrives) {
    std::vector<int16_t> pcm = NoiseSamples(size_t{30} * 2 * 777, 32767);
    Write("in.wav", pcm, 48000, 2);
    // the silence makes the chain return all of its delayed output
    pcm.resize(size_t{34} * 2 * 777);
    Instance instance;
    instance.Start(48000, 2);
    const std::vector<int16_t> expected = instance.Run(pcm, 777, 2);
    const std::string options =
        " --cold-start --keep-delay --strict-rate --buffer 777 -f -q --playback-gain --ratio 1.5"
        " --volume 1.3 --max-gain 4 --enhancer --process 1.8 --lo-contour 0.7 --output-gain 1.4"
        " --gate 0.8 --eq -0.6,-0.45,-0.3,-0.15,0,0,0,0,0,0 --eq 5=0.15,6=0.3"
        " --eq 7=0.45,8=0.6,9=0.75";
    for (std::string line :
         {"$ORVANE render in.wav out.wav", "$ORVANE render in.wav out.flac && mv out.flac out.wav",
          "cat in.wav | $ORVANE render - out.wav",
          "(head -c 5001 in.wav; sleep 0.1; tail -c +5002 in.wav) | $ORVANE render - - >out.wav"}) {
        line.insert(line.find("render") + 6, options);
        EXPECT_EQ(Shell(line), 0);
        EXPECT_EQ(Slurp("err"), line.find("- -") == std::string::npos
                                    ? ""
                                    : "orvane: standard output cannot keep COMMENT, "
                                      "TITLE\n")
            << line;
        const auto result = Read<int16_t>("out.wav");
        ASSERT_EQ(result.size(), size_t{30} * 2 * 777 + size_t{2} * (893 + 777)) << line;
        EXPECT_TRUE(std::equal(result.begin(), result.end(), expected.begin())) << line;
    }
    // Settings are saved and read back. The first wrong line is reported.
    EXPECT_EQ(Shell("$ORVANE render in.wav --save sound" + options +
                    " out.wav && $ORVANE render"
                    " in.wav again.wav --cold-start --keep-delay --buffer 777 --preset sound"
                    " && cmp out.wav again.wav && echo ratio = 11 >>sound"
                    " && ! $ORVANE render in.wav no.wav --preset ./sound && grep ./sound:11: err"),
              0)
        << Slurp("err");
}

TEST_F(Renderer, WritesTheFormatOfTheEndingAtTheRateAndLengthOfTheInput) {
    const std::tuple<std::string, int, int, int> cases[] = {
        {"a.wav", 44100, kWav16, 44100},
        {"a.flac", 48000, kFlac16, 48000},
        {"a.AIFF", 32000, SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 32000},
        {"a.au", 44100, SF_FORMAT_AU | SF_FORMAT_PCM_16, 44100},
        {"lossy.ogg", 44100, SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100},
        {"lossy.mp3", 44100, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100},
        {"lossy.opus", 44100, SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
        {"b.wav", 22050, kWav16, 22050},
        {"b.flac", 96000, kFlac16, 96000},
        {"c.wav", 50001, kWav16, 50001},
        {"d.wav", 88200, kWav16, 88200},
    };
    for (const auto& [output, inputHz, format, outputHz] : cases) {
        // The sine has whole periods, so that no resampler sees a step. Its length is odd at 96000
        // Hz.
        const Floats sine = Sine(0.5, 1000, inputHz, 1, 2.0170105);
        Write("in.wav", sine, inputHz, 1);
        const bool played = inputHz >= 32000 && inputHz <= 48000;
        const Json report = Report("in.wav " + output);
        const bool resampled = !played || outputHz != inputHz;
        EXPECT_EQ(report["notes"].Size(), resampled) << output;
        EXPECT_EQ(report["warnings"].Size(), output == "a.au") << output;  // AU files have no tags
        const int chainHz = played ? inputHz : inputHz % 11025 == 0 ? 44100 : 48000;
        EXPECT_EQ(report["chainRateHz"], chainHz) << output;
        SndfileHandle file(output);
        EXPECT_EQ(file.format(), format) << output;
        EXPECT_EQ(file.samplerate(), outputHz) << output;
        EXPECT_EQ(file.frames(),
                  std::llround(static_cast<double>(sine.size()) * outputHz / inputHz))
            << output;
        EXPECT_STREQ(file.getString(SF_STR_TITLE), output == "a.au" ? nullptr : "'Round Midnight");
        if (output.starts_with("lossy")) continue;
        const Floats result = Read(output);
        double worst = 0;
        for (size_t n = 0; n < sine.size(); ++n)
            worst = std::max<double>(worst, std::abs(result[n] - 0.998f * sine[n]));
        EXPECT_LT(worst, 0.01) << output;  // an offset of one frame would give 0.03
    }
}

TEST_F(Renderer, DithersMoreThanSixteenBitsAndCountsClippedSamples) {
    // The amplitude is a third of a 16-bit step. Dither keeps the sine, rounding loses it.
    const Floats soft = Sine(0.33 / 32768, 441, 44100, 1, 2);
    Write("in.wav", soft, 44100, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    for (const bool dither : {true, false}) {
        const std::string options = dither ? "" : " --no-dither";
        EXPECT_EQ(Report("--output-gain 16 in.wav out.wav" + options)["dithered"], dither);
        const Floats result = Read("out.wav");
        const double gain = std::inner_product(result.begin(), result.end(), soft.begin(), 0.0) /
                            std::inner_product(soft.begin(), soft.end(), soft.begin(), 0.0);
        EXPECT_NEAR(gain, dither ? 15 : 0, dither ? 0.5 : 0);  // 15.97 truncated to whole steps
    }
    const Floats hot = Sine(2, 997, 44100, 1, 1);
    Write("in.wav", hot, 44100, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    const auto beyond = std::count_if(hot.begin(), hot.end(), [](float x) { return x * x > 1; });
    EXPECT_EQ(Report("in.wav out.wav")["clippedIn"], beyond);
    const Floats held = Read("out.wav");
    for (size_t n = 0; n < hot.size(); ++n)
        ASSERT_TRUE(hot[n] <= 1 || held[n] > 0.9f) << n;  // neither wrapped nor silent
}

TEST_F(Renderer, LogsOnlyWhenAsked) {
    Write("in.flac", Sine(0.1, 1000, 48000, 2, 1), 48000, 2, kFlac16);
    EXPECT_EQ(Report("--output-gain 0.29 in.flac out.wav")["settings"]["output-gain"], 0.29);
    for (const char* line :
         {"! $ORVANE render in.flac b.wav --picture a.png 2>&1 | grep Quenthra_",
          "$ORVANE render in.flac c.wav --log 2>&1 | grep Quenthra_v2:",
          "$ORVANE response c.png && head -c 4 c.png | grep -a PNG",
          "$ORVANE info | grep ' 1.0 MIPS, 24 KiB'",
          "! grep -qw avx2 /proc/cpuinfo || $ORVANE info | head -n 1 | grep /avx2/"})
        EXPECT_EQ(Shell(line), 0) << line << '\n' << Slurp("out") << Slurp("err");
}

TEST_F(Renderer, RefusesInOneLineAndTouchesNothing) {
    const Floats sine = Sine(0.5, 1000, 44100, 6, 0.1);
    Write("in.wav", sine, 44100, 2);
    Write("in.flac", sine, 44100, 2, kFlac16);
    Write("six.wav", sine, 44100, 6);
    Write("low.wav", sine, 22050, 2);
    Write("999.wav", sine, 999, 1);
    Write("768001.wav", sine, 768001, 1);
    std::ofstream("old.wav") << "old";
    std::ofstream("lines") << std::string(50000000, '\n');  // NOLINT(bugprone-string-constructor)
    fs::create_directory("sub");
    fs::create_hard_link("in.wav", "sub/in");
    fs::create_symlink("new.png", "link.wav");
    const auto files = FilesHere() + 2;  // plus the files out and err
    std::istringstream lines(
        "1 missing.wav old.wav -f; 1 old.wav new.wav; 1 in.wav old.wav; 1 six.wav new.wav; "
        "1 in.wav new.wav --picture old.wav; 1 - new.wav; 1 in.wav new.wav --library in.wav; "
        "1 low.wav new.wav --strict-rate; 1 - - --picture new.png <in.wav >&-; "
        "2 in.wav a.wav --picture ./a.wav; 2 in.wav a.wav --picture sub/../a.wav; "
        "2 in.wav link.wav -f --picture new.png; 2 in.wav a.wav -f --picture sub/in; "
        "2 - a.wav -f <in.wav --picture in.wav; 2 in.wav new.doc; 2 in.wav - --json; "
        "2 in.wav new.wav --ratio 11; 2 in.wav new.wav --ratio nan; 2 in.wav new.wav --eq 10=0.5; "
        "2 in.wav new.wav --eq 0=0.1,1; 2 in.wav new.wav --enhancer=perhaps; "
        "2 in.wav new.wav --tone 60; 2 in.wav new.wav --tone 60:6,60:3; "
        "2 in.wav new.wav --tone 60:6 --eq 0=0.1; 2 in.wav new.wav --tone 5:6; "
        "2 in.wav new.wav --tone sub/none; 2 in.wav new.wav --tone old.wav; "
        "2 in.wav new.wav --quality 5; 2 in.wav new.ogg --quality 11; "
        "2 in.wav new.wav --ceiling 1; 2 in.wav new.wav --ceiling=-61; 2 in.wav new.wav "
        "--ceiling=-1TP; "
        "2 in.wav new.wav --ceiling=loud; 2 in.wav - --ceiling=-1; "
        "2 in.wav new.wav --match --output-gain 2; 2 in.wav new.wav --match=3; "
        "2 in.wav new.wav --output-gain -90dB; 2 in.wav new.wav --ratio 3dB; "
        "2 in.wav new.wav --preset none; 2 in.wav new.wav --buffer 0; "
        "2 in.wav new.wav --preset sub/none; 2 in.wav new.wav --preset old.wav; "
        "2 in.wav new.wav --preset /dev/zero; "
        "2 in.wav new.wav --save ./new.wav; 2 in.wav new.wav -f --save sub/in; "
        "1 in.wav new.wav --save old.wav; 2 in.wav ''; 2 '' new.wav; 2 in.wav new.wav --save ''; "
        "2 in.wav new.wav --match=; 2 in.wav new.wav --library ''; 1 999.wav new.wav; "
        "1 768001.wav new.wav; 2 in.wav new.wav --preset /dev/zero; "
        "2 in.wav new.wav --preset ./lines; 2 in.wav new.wav --preset sub");
    for (std::string line; std::getline(lines >> std::ws, line, ';');) {
        EXPECT_EQ(Shell("cat old.wav | PATH=/ $ORVANE render " + line.substr(1)), line[0] - '0')
            << line;
        ExpectOneLine(line);
        EXPECT_EQ(Slurp("old.wav"), "old") << line;
        EXPECT_EQ(FilesHere(), files) << line;
    }
    EXPECT_EQ(Shell("chmod 640 in.wav; $ORVANE render in.wav in.wav -f; stat in.wav | grep 0640"),
              0);
    EXPECT_EQ(Read("in.wav").size(), sine.size());
    EXPECT_EQ(FilesHere(), files);
    // A link to a missing file is refused before anything is read, and followed with -f.
    EXPECT_EQ(Shell("$ORVANE render missing.wav link.wav 2>&1 | grep link"), 0);
    EXPECT_EQ(Shell("$ORVANE render in.wav link.wav -f && test -h link.wav"), 0);
    EXPECT_EQ(Read("new.png").size(), sine.size());
}

TEST_F(Renderer, NamesWhatItCannotWriteAndKeepsTheOldFile) {
    Write("in.wav", NoiseSamples(88200, 3000), 44100, 2);
    for (const std::string line : {"--version >/dev/full", "--help >/dev/full", "info >/dev/full",
                                   "render --list-presets >&-", "render in.wav - >/dev/full",
                                   "render in.wav a.wav -f -q --json >/dev/full",
                                   "render in.wav b.wav -q --picture b.png"}) {
        EXPECT_EQ(Shell("PATH=/ $ORVANE " + line), 1) << line;  // this PATH has no plotter
        ExpectOneLine(line);
    }
    EXPECT_EQ(Read("a.wav").size() + Read("b.wav").size(), 2 * 88200);
    for (const std::string ending : {"wav", "flac", "ogg", "oga", "opus", "mp3", "aiff", "aif",
                                     "au", "snd", "caf", "w64", "rf64", "png"}) {
        const std::string name = "out." + ending;
        setenv("OUT", name.c_str(), 1);
        setenv("COMMAND", ending == "png" ? "picture" : "render", 1);
        EXPECT_EQ(Shell("$ORVANE $COMMAND -f -q in.wav $OUT"), 0) << name;
        const auto size = fs::file_size(name);
        std::ofstream(name) << "old";
        const auto files = FilesHere();
        // The disk is full in the middle of the file, or in its last pages. It cannot be nearer to
        // the end, because an MP3 file's size varies by a percent.
        for (const auto blocks : {size / 1024, size * 31 / 32 / 512}) {
            setenv("BLOCKS", std::to_string(blocks).c_str(), 1);
            EXPECT_EQ(Shell("trap '' XFSZ; ulimit -f $BLOCKS; $ORVANE $COMMAND -f -q in.wav $OUT"),
                      1)
                << name;
            ExpectOneLine(name);
            EXPECT_TRUE(Slurp(name) == "old") << name << blocks;
            EXPECT_EQ(FilesHere(), files) << name;
        }
    }
}

TEST_F(Renderer, ReportsDamageOfTheInput) {
    Write("in", NoiseSamples(20000, 3000), 44100, 2);
    fs::resize_file("in", 30000);
    const Json damage = Report("in out.wav", "--preset off ", 3)["damage"];
    EXPECT_NE(damage.Text().find("of 40000 bytes"), std::string::npos) << damage.Text();

    Floats odd = Sine(0.1, 1000, 22050, 1, 1);
    odd[3000] = NAN;
    odd[4000] = -INFINITY;
    for (const int rate : {44100, 22050}) {
        Write("in", odd, rate, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        EXPECT_EQ(Report("in out.wav", "--preset off ", 3)["notNumbers"], 2);
        EXPECT_NEAR(Read("out.wav")[3004], 0.998f * odd[3004], 0.03) << rate;
    }
    // These samples are finite, but not after the resampler.
    std::fill_n(odd.begin() + 5000, 5000, 3e38f);
    Write("in", odd, 22050, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_GT(Report("in out.wav", "--preset off ", 3)["notNumbers"], 2);
    for (const int rate : {1000, 768000}) {
        Write("in", NoiseSamples(300, 3000), rate, 1);
        EXPECT_TRUE(std::isnan(Report("in out.wav")["loudnessLufs"]["before"])) << rate;
    }
}

TEST_F(Renderer, LeavesNothingBehindWhenInterrupted) {
    Write("in.wav", Sine(0.5, 1000, 44100, 2, 1), 44100, 2);
    // The header leaves the length open, so the input is processed as it arrives.
    EXPECT_EQ(Shell("$ORVANE render -q in.wav - >open.wav; mv open.wav in.wav; mkfifo pipe"), 0);
    // The program is ended after it has created a temporary file for the output, but none for the
    // pipe, which stays open.
    for (const int number : {SIGINT, SIGTERM, SIGPIPE, SIGQUIT, SIGXCPU, SIGXFSZ}) {
        const std::string end = "kill -" + std::to_string(number) + " $!";
        EXPECT_EQ(Shell("ulimit -c 0;"
                        "env --default-signal $ORVANE render - out.wav <pipe & exec 3>pipe;"
                        "head -c 50000 in.wav >&3; for try in $(seq 100); do sleep 0.1;"
                        "  ls .out-* && ! ls out.wav && " +
                        end +
                        " && break; done;"
                        "exec 3>&-; wait $!"),
                  128 + number);
        EXPECT_EQ(FilesHere(), 4) << number;  // the files in.wav, pipe, out and err
    }
}

}  // namespace
