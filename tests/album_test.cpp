// Tests albums: all tracks go through one instance of the chain and are joined without a gap.
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include <map>
#include <numeric>

#include "render/audio/output_file.h"
#include "render/failure.h"
#include "tests/renderer_fixture.h"
#include "tests/signals.h"

namespace {

using Samples = std::vector<int16_t>;

void Tag(const std::string& path, const std::map<std::string, std::string>& wanted) {
    TagLib::FileRef file(path.c_str());
    TagLib::PropertyMap fields;
    for (const auto& [name, value] : wanted)
        fields.insert(name, TagLib::String(value, TagLib::String::UTF8));
    file.file()->setProperties(fields);
    file.save();
}

std::vector<std::string> Names(const Json& report) {
    std::vector<std::string> names;
    for (const Json& track : report["tracks"].Elements()) names.push_back(track["input"].String());
    return names;
}

// Runs the album command and returns the report of each album.
std::vector<Json> Reports(const std::string& arguments) {
    EXPECT_EQ(Shell("$ORVANE album --json " + arguments), 0) << Slurp("err");
    return Json::All(Slurp("out"));
}

struct Album : Renderer {
    Album() { fs::create_directories("in"); }
    // Writes a sine that is soft enough for any preset, one second long by default.
    static void WriteTrack(const std::string& name, int rateHz = 44100, double seconds = 1) {
        Write("in/" + name, Sine(0.2, 440, rateHz, 2, seconds), rateHz, 2,
              name.ends_with(".flac") ? kFlac16 : kWav16);
    }
};

TEST_F(Album, JoinedTracksAreTheSamplesOfTheJoinedSources) {
    // The lengths include one shorter than a block, a whole block of the reader, and some that fill
    // no buffer.
    const size_t lengths[] = {30011, 4096, 37, 1, 70000, 8192, 1023, 50000, 12345, 9999};
    const std::tuple<int, int, int, std::string> kinds[] = {
        {44100, 2, kFlac16, "--preset music"},
        {44100, 1, SF_FORMAT_WAV | SF_FORMAT_PCM_24, "--preset loud --buffer 333"},
        {96000, 2, SF_FORMAT_WAV | SF_FORMAT_PCM_24, "--preset steady"},
        {22050, 1, kWav16, "--preset night --tone 60:3,1000:0"}};
    for (const auto& [rateHz, channels, format, options] : kinds) {
        SCOPED_TRACE(options);
        fs::remove_all("in");
        fs::create_directories("in");
        const std::string ending = format == kFlac16 ? ".flac" : ".wav";
        const Floats piece =
            Noise<float>(static_cast<size_t>(channels) *
                             std::accumulate(std::begin(lengths), std::end(lengths), size_t{0}),
                         0.5, 7);
        auto from = piece.begin();
        for (size_t i = 0; i < std::size(lengths); ++i) {
            const auto end = from + static_cast<ptrdiff_t>(lengths[i]) * channels;
            Write("in/" + std::to_string(i + 1) + ending, Floats(from, end), rateHz, channels,
                  format);
            from = end;
        }
        Write("joined" + ending, piece, rateHz, channels, format);
        const Json whole = Report("joined" + ending + " joined.flac ", options + " ");
        const Json album = Reports(options + " --format flac -f in out.d").at(0);
        Samples joined;
        for (size_t i = 0; i < std::size(lengths); ++i) {
            const auto track = Read<int16_t>("out.d/" + std::to_string(i + 1) + ".flac");
            EXPECT_EQ(track.size(), lengths[i] * static_cast<size_t>(channels)) << i;
            EXPECT_EQ(album["tracks"].Elements().at(i)["frames"], lengths[i]);
            joined.insert(joined.end(), track.begin(), track.end());
        }
        EXPECT_TRUE(joined == Read<int16_t>("joined.flac"));
        for (const char* same : {"loudnessLufs", "truePeakDb", "frames", "dithered", "seconds"})
            EXPECT_EQ(album[same], whole[same]) << same;
    }
}

TEST_F(Album, LossyTracksHaveTheirFramesAfterDecoding) {
    const size_t lengths[] = {30011, 50000, 12345, 77};
    size_t frames = 0, total = 0;
    for (size_t i = 0; i < std::size(lengths); ++i)
        Write("in/" + std::to_string(i) + ".wav",
              Noise<float>(2 * lengths[i], 0.3, static_cast<unsigned>(i)), 44100, 2);
    for (const std::string format : {"opus", "ogg", "mp3"}) {
        Reports("in out.d --format " + format);
        frames = total = 0;
        for (size_t i = 0; i < std::size(lengths); ++i) {
            frames += lengths[i];
            const SndfileHandle file("out.d/" + std::to_string(i) + "." + format);
            const auto end = static_cast<size_t>(std::llround(
                static_cast<double>(frames) * (format == "opus" ? 48000.0 / 44100 : 1)));
            EXPECT_EQ(file.frames(), end - total) << format << i;
            total = end;
        }
    }
    EXPECT_EQ(Shell("$ORVANE album -q in out.d --format au"), 0);
    EXPECT_EQ(Slurp("err"),
              "orvane: out.d/0.au cannot keep COMMENT, TITLE; the same goes for 3 more\n");
}

TEST_F(Album, OrdersTracksByTagsOrElseByNames) {
    for (const char* name : {"10 b.flac", "2 a.flac", "x.flac"}) WriteTrack(name, 44100, 0.1);
    using Texts = std::vector<std::string>;
    const auto order = [] { return Names(Reports("-f in out.d").at(0)); };
    EXPECT_EQ(order(), (Texts{"2 a.flac", "10 b.flac", "x.flac"}));
    EXPECT_NE(Slurp("out").find("2 a.flac has no track number"), std::string::npos);
    Tag("in/10 b.flac", {{"ALBUM", "A"}, {"TRACKNUMBER", "2/3"}});
    Tag("in/2 a.flac", {{"ALBUM", "A"}, {"TRACKNUMBER", "03"}});
    Tag("in/x.flac", {{"ALBUM", "A"}, {"TRACKNUMBER", "1"}});
    EXPECT_EQ(order(), (Texts{"x.flac", "10 b.flac", "2 a.flac"}));
    EXPECT_EQ(Slurp("out").find("names"), std::string::npos);
    Tag("in/x.flac", {{"ALBUM", "A"}, {"TRACKNUMBER", "2"}, {"DISCNUMBER", "2"}});
    EXPECT_EQ(order(), (Texts{"10 b.flac", "2 a.flac", "x.flac"}));
    Tag("in/x.flac", {{"ALBUM", "A"}, {"TRACKNUMBER", "2"}});
    EXPECT_EQ(order(), (Texts{"2 a.flac", "10 b.flac", "x.flac"}));
    EXPECT_NE(Slurp("out").find("the same track number"), std::string::npos);

    // Folders of discs, whose album tags differ only in the disc, are one album. The folder "more"
    // is not part of it.
    for (const char* name : {"CD1", "cd 2", "more"})
        fs::create_directory(std::string("in/") + name);
    fs::rename("in/10 b.flac", "in/cd 2/b.flac");
    fs::rename("in/2 a.flac", "in/CD1/a.flac");
    fs::rename("in/x.flac", "in/CD1/x.flac");
    WriteTrack("more/c.flac", 44100, 0.1);
    WriteTrack(".hidden.flac", 44100, 0.1);
    Tag("in/cd 2/b.flac", {{"ALBUM", "A (Disc 2)"}, {"TRACKNUMBER", "1"}});
    Tag("in/CD1/x.flac", {{"ALBUM", "A [CD 1]"}, {"TRACKNUMBER", "1"}});
    EXPECT_EQ(order(), (Texts{"CD1/x.flac", "CD1/a.flac", "cd 2/b.flac"}));
    EXPECT_NE(Slurp("out").find("not part of the album: more"), std::string::npos);
    EXPECT_TRUE(fs::exists("out.d/cd 2/b.flac"));

    // Two albums in one folder are rendered as two separate pieces.
    Tag("in/CD1/a.flac", {{"ALBUM", "B"}, {"TRACKNUMBER", "1"}});
    const auto two = Reports("-f in out.d");
    ASSERT_EQ(two.size(), 2);
    EXPECT_EQ(two[0]["album"].String() + two[1]["album"].String(), "BA");
    EXPECT_EQ(Names(two[1]), (Texts{"CD1/x.flac", "cd 2/b.flac"}));
}

TEST_F(Album, AnotherRateBeginsAnotherRun) {
    const int rates[] = {44100, 44100, 96000, 44100};
    for (int i = 0; i < 4; ++i) WriteTrack(std::to_string(i) + ".wav", rates[i], 0.7 + 0.1 * i);
    const std::string options = "--preset loud ";
    const Json report = Reports(options + "in out.d").at(0);
    EXPECT_NE(report["notes"].Text().find("at 2.wav, which has another format: 96000 Hz"),
              std::string::npos);
    for (const int alone : {2, 3}) {
        const std::string name = std::to_string(alone) + ".wav";
        Report("in/" + name + " alone.wav", options);
        EXPECT_TRUE(Read<int16_t>("alone.wav") == Read<int16_t>("out.d/" + name)) << name;
    }
    EXPECT_EQ(Read("out.d/1.wav").size(), Read("in/1.wav").size());
    EXPECT_NEAR(report["seconds"], 3.4, 0.001);
}

TEST_F(Album, OneGainHoldsForAllTracks) {
    Write("in/1.wav", Sine(0.3, 997, 44100, 1, 2), 44100, 1);
    Write("in/2.wav", Sine(0.03, 997, 44100, 1, 2), 44100, 1);
    Write("in/3.wav", Sine(0.1, 997, 48000, 2, 2), 48000, 2);
    const Json report = Reports("--preset off --match=-20 in out.d").at(0);
    EXPECT_NEAR(report["loudnessLufs"]["after"], -20, 0.3);
    // The mean power of the first track (-13.5 LUFS) and the last (-20 LUFS). The second is too
    // soft to count.
    EXPECT_NEAR(report["loudnessLufs"]["before"], -15.6, 0.3);
    EXPECT_NEAR(report["truePeakDb"]["before"], -10.5, 0.1);
    const double gain = report["settings"]["output-gain"];
    EXPECT_NEAR(gain, std::pow(10, (-20 - report["loudnessLufs"]["before"]) / 20), 0.02);
    for (const std::string name : {"1.wav", "2.wav", "3.wav"}) {
        const Floats in = Read("in/" + name), out = Read("out.d/" + name);
        const auto peak = [](const Floats& of) { return *std::max_element(of.begin(), of.end()); };
        EXPECT_NEAR(peak(out) / peak(in), gain, 0.01) << name;
    }
    const Json toned = Reports("--tone 100:6 -f in out.d").at(0);
    EXPECT_LT(toned["settings"]["output-gain"], 0.51);
}

TEST_F(Album, WritesAllOrNothing) {
    for (const char* name : {"1.wav", "2.wav"}) WriteTrack(name);
    WriteTrack("3.flac", 44100, 3);
    const auto refuses = [](const std::string& line, const std::string& named, int status = 1) {
        EXPECT_EQ(Shell(line), status) << line;
        ExpectOneLine(line);
        EXPECT_NE(Slurp("err").find(named), std::string::npos) << line << Slurp("err");
        EXPECT_FALSE(fs::exists("out.d")) << line;
    };
    const std::string album = "$ORVANE album -q in out.d/deep ";
    refuses("$ORVANE album -q in in", "-f", 2);
    refuses("$ORVANE album -q 1.wav out.d", "not a folder");
    refuses(album + "--format xyz", "xyz", 2);
    fs::copy("in/1.wav", "in/1.aiff");
    refuses(album + "--format opus", "1.opus");
    fs::remove("in/1.aiff");
    refuses("trap '' XFSZ; ulimit -f 600; " + album + "--format wav", "3.wav");  // the disk is full
    for (const char* name : {"2.wav", "3.flac"}) {
        const std::string damaged = std::string("in/") + name;
        fs::copy(damaged, "whole");
        fs::resize_file(damaged, fs::file_size(damaged) / 2);
        refuses(album, damaged);
        std::ofstream(damaged) << "no audio";
        refuses(album, damaged);
        fs::rename("whole", damaged);
    }
    Write("in/4.wav", Sine(0.1, 100, 44100, 6, 0.1), 44100, 6);
    refuses(album, "4.wav has 6 channels");
    fs::remove("in/4.wav");

    fs::create_directory("out.d");
    std::ofstream("out.d/3.flac") << "old";
    EXPECT_EQ(Shell("$ORVANE album -q in out.d"), 1);
    EXPECT_EQ(Shell("$ORVANE album -q --skip-existing in out.d"), 1);
    EXPECT_EQ(Slurp("out.d/3.flac") + Slurp("out.d/1.wav"), "old");
    EXPECT_EQ(Shell("$ORVANE album -q -f in out.d"), 0);
    const auto written = fs::last_write_time("out.d/1.wav");
    EXPECT_EQ(Shell("$ORVANE album --skip-existing in out.d && grep skipped err"), 0);
    EXPECT_EQ(fs::last_write_time("out.d/1.wav"), written);
    EXPECT_EQ(Shell("$ORVANE album -q -f in in && cmp in/2.wav out.d/2.wav"), 0);

    // The program is ended while it writes the second track, which is half an hour of silence.
    fs::remove_all("out.d");
    EXPECT_EQ(
        Shell("perl -e 'print pack \"A4VA4A4VvvVVvvA4V\", \"RIFF\", 317520036, \"WAVE\", \"fmt \","
              " 16, 1, 2, 44100, 176400, 4, 16, \"data\", 317520000' >in/2.wav"
              " && truncate -s 317520044 in/2.wav"),
        0);
    EXPECT_EQ(Shell("env --default-signal " + album +
                    "& for try in $(seq 300); do sleep 0.1; ls out.d/deep/.2-* && break; done;"
                    " ls out.d/deep/.1-* && ! ls out.d/deep/1.wav && kill -INT $!; wait $!"),
              130);
    EXPECT_FALSE(fs::exists("out.d"));
}

TEST_F(Album, FilesGetTheirNamesTogetherOrNotAtAll) {
    std::ofstream("old") << "old";
    for (const bool meanwhile : {true, false}) {
        OutputSet set;
        set.MakeFolder("new/folder");
        for (const char* name : {"new/folder/a", "old", "last"}) {
            OutputFile file(name, name == std::string("old"), &set);
            EXPECT_EQ(write(file.Descriptor(), "new", 3), 3);
            file.Commit();
            EXPECT_FALSE(fs::exists("last"));
        }
        if (meanwhile) {
            std::ofstream("last") << "another's";
            EXPECT_THROW(set.Commit(), Failure);
            EXPECT_EQ(Slurp("old") + Slurp("last") + Slurp("new/folder/a"), "oldanother's");
            fs::remove("last");
        } else {
            set.Commit();
        }
    }
    EXPECT_EQ(Slurp("old") + Slurp("last") + Slurp("new/folder/a"), "newnewnew");
    EXPECT_EQ(FilesHere(), 4);  // the folders or files in, new, old and last
}

TEST_F(Album, ACueSheetGoesWithItsFile) {
    WriteTrack("whole.wav");
    const std::string head = "\xEF\xBB\xBFREM FILE of ours\r\nTITLE \"T\"\r\n",
                      rest = "\r\n  TRACK 01 AUDIO\r\n    INDEX 01 00:00:00\r\n";
    std::ofstream("in/sheet.CUE") << head << "FILE \"C:\\old name.ape\" WAVE" << rest;
    std::ofstream("in/cover.jpg") << "picture";
    EXPECT_EQ(Shell("touch -d '2001-02-03 04:05:06.7' in/*"), 0);
    std::string notes = Reports("in out.d --format mp3 --keep-times").at(0)["notes"].Text();
    EXPECT_EQ(Shell("stat -c %y in/whole.wav out.d/whole.mp3 out.d/sheet.CUE | sort -u"), 0);
    ExpectOneLine("times");
    EXPECT_EQ(Slurp("out.d/sheet.CUE"), head + "FILE \"whole.mp3\" MP3" + rest);
    EXPECT_NE(notes.find("1 file of the folder"), std::string::npos) << notes;
    EXPECT_FALSE(fs::exists("out.d/cover.jpg"));
    // A cue sheet that names several files, or none of these, is not copied.
    WriteTrack("second.wav");
    std::ofstream("in/whole.cue") << "FILE \"whole.wav\" WAVE\nFILE \"second.wav\" WAVE\n";
    fs::remove_all("out.d");
    notes = Reports("in out.d").at(0)["notes"].Text();
    EXPECT_NE(notes.find("3 files of the folder"), std::string::npos) << notes;
    EXPECT_EQ(std::distance(fs::directory_iterator("out.d"), fs::directory_iterator()), 2);
}

TEST_F(Album, OneCeilingHoldsForAllTracks) {
    Floats loud;
    for (const float sample : Noise<float>(size_t{2} * 44100, 1))
        loud.push_back(sample > 0 ? 0.99F : -0.99F);
    Write("in/1.wav", loud, 44100, 2);
    WriteTrack("2.wav");
    for (const std::string ending : {"flac", "opus"}) {
        const Json report =
            Reports(fmt::format("in out-{0} --preset off --ceiling=-3dB --format {0}", ending))
                .at(0);
        EXPECT_LE(report["ceiling"]["reachedDb"], -3) << ending;
        EXPECT_GT(report["ceiling"]["reachedDb"], -5) << ending;
        for (const float x : Read(fmt::format("out-{0}/1.{0}", ending)))
            ASSERT_LE(std::abs(x), 0.708) << ending;
        // The soft track is lowered by the same gain as the loud one.
        const Floats soft = Read(fmt::format("out-{0}/2.{0}", ending));
        EXPECT_NEAR(*std::max_element(soft.begin() + 20000, soft.end() - 20000),
                    0.2 * std::pow(10, report["ceiling"]["gainDb"] / 20), 0.01)
            << ending;
        EXPECT_EQ(std::distance(fs::directory_iterator("out-" + ending), {}), 2) << ending;
    }
    EXPECT_GT(Reports("in loud --preset off --format opus").at(0)["notes"].Size(), 0);
}

}  // namespace
