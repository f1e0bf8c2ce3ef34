// Tests sources that are cut, joined or otherwise damaged. The damage is found, named in one line,
// and the output has all that can be read.
#include <fmt/core.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>

#include "client/stderr_silencer.h"
#include "tests/library_under_test.h"
#include "tests/renderer_fixture.h"

namespace {

constexpr int kRate = 48000;
constexpr int64_t kFrames = 150000;
constexpr size_t kBytes = kFrames * 2 * sizeof(int16_t);

const std::pair<std::string, int> kFormats[] = {
    {"a.wav", kWav16},
    {"a.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
    {"a.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16},
    {"a.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
    {"a.au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
    {"a.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
    {"a.flac", kFlac16},
    {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    {"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
    {"a.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
};

void WriteBytes(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// Renders quietly and returns the number of frames of the output.
int64_t Render(const std::string& source, int status, const std::string& environment = "") {
    fs::remove("out.wav");
    const std::string line = "env " + environment + " $ORVANE render -q --preset off " + source;
    EXPECT_EQ(Shell(line + " out.wav"), status) << source << ": " << Slurp("err");
    if (status == 0) {
        EXPECT_EQ(Slurp("err"), "") << source;
    } else {
        ExpectOneLine(source);
    }
    if (status == 1) return 0;
    const int64_t frames = SndfileHandle("out.wav").frames();
    fs::remove("out.wav");
    const auto files = FilesHere();
    EXPECT_EQ(Shell(line + " out.wav --only-whole"), status == 0 ? 0 : 1) << source;
    if (status != 0) {
        ExpectOneLine(source);
        EXPECT_EQ(FilesHere(), files) << source;
    }
    return frames;
}

struct DamagedSource : Renderer {
    DamagedSource() {
        for (const auto& [name, format] : kFormats)
            Write(name, NoiseSamples(2 * kFrames, 9000), kRate, 2, format);
    }
};

TEST_F(DamagedSource, IsDistinguishedFromAWholeOneInEveryFormat) {
    for (const auto& [name, format] : kFormats) {
        EXPECT_EQ(Render(name, 0, "PATH=/"), kFrames) << name;  // without ffmpeg
        EXPECT_EQ(Render("- <" + name, 0), kFrames) << name;
        const std::string whole = Slurp(name);
        WriteBytes("cut" + name, whole.substr(0, whole.size() * 6 / 10));
        for (const std::string& source : {"cut" + name, "- <cut" + name}) {
            const int64_t frames = Render(source, 3);
            EXPECT_LT(frames, kFrames * 7 / 10) << source;
            EXPECT_GT(frames, kFrames * 2 / 10) << source;
        }
        // The pipe breaks.
        EXPECT_EQ(Shell("cat cut" + name + " | $ORVANE render -q --preset off - broken.wav"), 3);
        ExpectOneLine(name);
        fs::remove("broken.wav");
    }
    // The header leaves the length open.
    EXPECT_EQ(Shell("$ORVANE render -q a.wav - | head -c 90044 >open.wav"), 0);
    EXPECT_EQ(Render("open.wav", 0), 90000 / 4);
    EXPECT_EQ(Render("- <open.wav", 0), 90000 / 4);
}

TEST_F(DamagedSource, IsFoundByTheHeaderOfAWavFile) {
    const std::string whole = Slurp("a.wav");
    const size_t data = whole.find("data");
    const std::string samples = whole.substr(data + 8, kBytes);
    const auto withSize = [&](uint32_t size) {
        std::string bytes = whole.substr(0, data + 8 + kBytes);
        std::memcpy(bytes.data() + data + 4, &size, sizeof(size));
        return bytes;
    };
    WriteBytes("zero.wav", withSize(0));
    EXPECT_EQ(Render("zero.wav", 3), kFrames);
    WriteBytes("small.wav", withSize(kBytes / 2));
    EXPECT_EQ(Render("small.wav", 3), kFrames);
    WriteBytes("joined.wav", whole + whole);
    EXPECT_EQ(Render("joined.wav", 3), kFrames);
    WriteBytes("second.wav", whole + withSize(kBytes).substr(data));
    EXPECT_EQ(Render("second.wav", 3), kFrames);
    WriteBytes("within.wav", whole + std::string("LIST\x80\0\0\0INFO", 12));
    EXPECT_EQ(Render("within.wav", 3), kFrames);
    // These bytes may follow the samples of a whole file.
    for (const std::string& tail : {std::string(3000, '\0'), std::string("abc"),
                                    "TAG" + std::string(125, ' '), "JUNK" + std::string(4, '\0')}) {
        WriteBytes("tail.wav", whole + tail);
        EXPECT_EQ(Render("tail.wav", 0), kFrames);
    }
    // No samples are promised and none are missing, so the output is empty.
    WriteBytes("empty.wav", withSize(0).substr(0, data + 8) + std::string("LIST\4\0\0\0INFO", 12));
    EXPECT_EQ(Shell("$ORVANE render -qf empty.wav out.wav"), 0) << Slurp("err");

    // The size in the ds64 chunk leads from the data chunk back to the first chunk.
    std::string loop = "RF64" + std::string(4, '\xFF') + "WAVEds64\x1C" + std::string(31, '\0') +
                       "data" + std::string(4, '\xFF') + std::string(64, '\0');
    const uint64_t back = 12 - loop.find("data") - 8;
    std::memcpy(loop.data() + 28, &back, sizeof(back));
    WriteBytes("loop.wav", loop);
    EXPECT_NE(Shell("timeout 60 $ORVANE render -q loop.wav out.wav"), 124);

    Floats odd = Sine(0.1, 1000, kRate, 2, 1);
    odd[3000] = std::numeric_limits<float>::quiet_NaN();
    Write("nan.wav", odd, kRate, 2, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_EQ(Render("nan.wav", 3), kRate);
}

TEST_F(DamagedSource, IsReadCompletelyByFfmpegIfItWasJoined) {
    Write("b.opus", NoiseSamples(kFrames, 9000), 24000, 1, SF_FORMAT_OGG | SF_FORMAT_OPUS);
    Write("-v=1,a:b.mp3", NoiseSamples(2 * kFrames, 9000), kRate, 2, kFormats[9].second);
    const std::tuple<std::string, std::string, int64_t> joined[] = {
        {"a.ogg", "a.ogg", 2 * kFrames},  {"a.opus", "a.opus", 2 * kFrames},
        {"a.ogg", "a.opus", 2 * kFrames}, {"a.opus", "b.opus", 3 * kFrames},
        {"a.mp3", "a.mp3", 2 * kFrames},  {"a.flac", "a.flac", 2 * kFrames},
    };
    for (const auto& [first, second, frames] : joined) {
        WriteBytes("joined", Slurp(first) + Slurp(second));
        EXPECT_EQ(Render("joined", 0), frames) << first << second;
        EXPECT_EQ(Render("joined", 3, "PATH=/"), kFrames) << first << second;
        EXPECT_EQ(Render("- <joined", 0), frames) << first << second;
        const std::string whole = Slurp("joined");
        WriteBytes("joined", whole.substr(0, whole.size() - 3000));
        EXPECT_GT(Render("joined", 3), frames * 6 / 10) << first << second;
    }
    // Another program has read the bytes before the file from standard input.
    WriteBytes("joined", "ahead" + Slurp("a.ogg") + Slurp("a.opus"));
    EXPECT_EQ(Shell("{ dd bs=5 count=1 of=ahead; $ORVANE render -f - out.wav; } <joined"), 0)
        << Slurp("err");
    EXPECT_EQ(SndfileHandle("out.wav").frames(), 2 * kFrames);

    // These files have no frame count, and the bit rate of their first frame is not that of the
    // others.
    std::string uncounted = Slurp("a.mp3");
    const size_t count = std::min(uncounted.find("Xing"), uncounted.find("Info"));
    ASSERT_LT(count, 3000);
    uncounted.replace(count, 4, 4, '\0');
    WriteBytes("uncounted.mp3", uncounted);
    const int64_t all = Render("uncounted.mp3", 0);
    EXPECT_GE(all, kFrames);
    WriteBytes("cut.mp3", uncounted.substr(0, uncounted.size() * 6 / 10));
    EXPECT_LT(Render("cut.mp3", 3), all * 7 / 10);
    WriteBytes("joined", Slurp("a.mp3") + uncounted);
    EXPECT_GT(Render("joined", 0), 2 * kFrames);
    EXPECT_EQ(Render("joined", 3, "PATH=/"), kFrames);
    EXPECT_EQ(Render("./-v=1,a:b.mp3", 0), kFrames);
}

TEST_F(DamagedSource, MayPromiseTagsBeyondItsEnd) {
    ASSERT_EQ(Shell("ffmpeg -v error -i a.wav -metadata title=T a.wma"), 0) << Slurp("err");
    std::string bytes = Slurp("a.wma");
    // The extended content description: its identifier, its size, and the number of its attributes.
    const size_t at = bytes.find("\x40\xA4\xD0\xD2\x07\xE3\xD2\x11");
    ASSERT_NE(at, std::string::npos);
    WriteBytes("endless.wma", bytes.replace(at + 24, 2, "\xFF\xFF"));
    // When its reading is given up, TagLib doesn't free what it has read.
    setenv("LSAN_OPTIONS", "detect_leaks=0", 1);
    EXPECT_NE(Report("endless.wma out.flac")["warnings"].Text().find("damaged tags"),
              std::string::npos);
    unsetenv("LSAN_OPTIONS");
}

TEST_F(DamagedSource, CrashesOnlyTheProcessThatDecodesIt) {
    ASSERT_EQ(
        Shell("ffmpeg -v error -i a.wav a.m4a; ffmpeg -v error -i a.wav a.wma; "
              "ffmpeg -v error -i a.wav -metadata title=Blue -metadata album='To the B' b.m4a;"
              "cp b.m4a ./-i:b,c.m4a"),
        0);
    for (const std::string source : {"a.m4a", "a.wma", "- <a.m4a", "./-i:b,c.m4a"})
        EXPECT_NEAR(static_cast<double>(Render(source, 0)), kFrames, 2048) << source;
    for (const std::string source : {"a.m4a", "a.wma"}) {
        Render(source, 1, "PATH=/");
        EXPECT_EQ(Shell("PATH=/ $ORVANE render -q " + source + " out.wav"), 1);
        EXPECT_NE(Slurp("err").find("the program ffmpeg, which"), std::string::npos);
    }
    const std::string wma = Slurp("a.wma");
    WriteBytes("cut.wma", wma.substr(0, wma.size() * 6 / 10));
    EXPECT_LT(Render("cut.wma", 3), kFrames * 7 / 10);
    // Lossless sound of 16 bits isn't dithered, whatever reads it.
    EXPECT_EQ(Shell("ffmpeg -v error -i a.wav -c:a alac d.m4a && $ORVANE render -q d.m4a d.au && "
                    "$ORVANE render -q a.wav e.au && cmp d.au e.au"),
              0);
    EXPECT_EQ(Shell("$ORVANE render -q b.m4a b.flac && $ORVANE render -q ./-i:b,c.m4a c.flac"), 0);
    for (const char* name : {"b.flac", "c.flac"}) {
        SndfileHandle result(name);
        EXPECT_STREQ(result.getString(SF_STR_TITLE), "Blue");
        EXPECT_STREQ(result.getString(SF_STR_ALBUM), "To the B");
    }

    fs::create_directory("bin");
    const auto fake = [](const std::string& end) {
        std::ofstream("bin/ffmpeg")
            << "#!/bin/sh\nPATH=${PATH#bin:}\nffmpeg \"$@\" 2>/dev/null | " + end;
        fs::permissions("bin/ffmpeg", fs::perms::owner_all);
    };
    fake("head -c 40032; kill -SEGV $$");
    EXPECT_EQ(Render("a.m4a", 3, "PATH=bin:$PATH"), 40000 / 8);
    EXPECT_EQ(Shell("PATH=bin:$PATH $ORVANE render -q a.m4a out.wav -f"), 3);
    EXPECT_NE(Slurp("err").find("signal 11"), std::string::npos) << Slurp("err");
    fake("cat; exit 5");
    EXPECT_GT(Render("a.m4a", 3, "PATH=bin:$PATH"), kFrames);
    fake("head -c 20; kill -SEGV $$");
    Render("a.m4a", 1, "PATH=bin:$PATH");
    // A playlist of other files is not followed.
    WriteBytes("list.m3u8", "#EXTM3U\n#EXTINF:1,\na.m4a\n#EXT-X-ENDLIST\n");
    Render("list.m3u8", 1);
}

// The user sees no message of the decoder itself. A file that comes through a pipe is decoded as a
// file.
TEST_F(DamagedSource, GivesOneMessageIfItIsInTheMiddle) {
    for (const std::string name : {"a.ogg", "a.opus"}) {  // one page is missing
        std::string bytes = Slurp(name);
        const size_t at = bytes.find("OggS", bytes.size() / 2);
        WriteBytes("gap", bytes.erase(at, bytes.find("OggS", at + 1) - at));
        Render("gap", 3);
        EXPECT_NE(Slurp("err").find("1 of its Ogg pages are missing"), std::string::npos) << name;
    }
    const std::string mp3 = Slurp("a.mp3");
    for (const size_t step : {97U, 997U, 3001U, 9001U}) {
        std::string bytes = mp3;
        for (size_t at = 3000; at + 8 < bytes.size(); at += step)
            for (size_t i = 0; i < 8; ++i) bytes[at + i] = static_cast<char>(255 - i % 3);
        WriteBytes("odd.mp3", bytes);
        for (const std::string source : {"odd.mp3 out.wav", "- out.wav <odd.mp3"}) {
            for (const std::string ahead : {"", "cat odd.mp3 | "}) {
                const int status =
                    Shell(fmt::format("{}$ORVANE render -qf --preset off {}", ahead, source));
                EXPECT_TRUE(status == 0 || status == 1 || status == 3) << status << Slurp("err");
                const std::string said = Slurp("err");
                EXPECT_LE(std::count(said.begin(), said.end(), '\n'), status == 0 ? 0 : 1) << said;
            }
        }
    }
}

#if defined(__SANITIZE_ADDRESS__)
// The silencer must not suppress a sanitizer's report.
TEST(StderrSilencer, LetsASanitizerSpeak) {
    const auto overrun = [] {
        const StderrSilencer silencer;
        std::vector<int> block(8);
        volatile int* const at = block.data();
        at[8] = 1;
    };
    EXPECT_DEATH(overrun(), "heap-buffer-overflow");
}
#endif

}  // namespace
