// Tests the renderer as a tool: which tags it keeps, what it prints, and how it shares a folder
// with other programs.
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/tpropertymap.h>

#include <sstream>

#include "render/audio/audio_writer.h"
#include "tests/library_under_test.h"
#include "tests/renderer_fixture.h"

namespace {

const TagLib::ByteVector kCover(200000, 'c');

void WriteTagged(const std::string& path) {
    TagLib::FLAC::File file(path.c_str());
    TagLib::PropertyMap fields;
    for (const char* name : {"ALBUMARTIST", "ARTIST", "COMPOSER", "GENRE", "LYRICS", "TITLE"})
        fields.insert(name, TagLib::String(std::string("the Ⓐ of ") + name, TagLib::String::UTF8));
    fields.insert("DATE", TagLib::String("2001-02-03"));
    fields.insert("MUSICBRAINZ_TRACKID", TagLib::String("1-a"));
    fields.insert("ENCODER", TagLib::String("another program"));
    fields.insert("REPLAYGAIN_TRACK_GAIN", TagLib::String("-6 dB"));
    file.setProperties(fields);
    auto* const picture = new TagLib::FLAC::Picture;
    picture->setType(TagLib::FLAC::Picture::BackCover);
    picture->setMimeType("image/png");
    picture->setData(kCover);
    file.addPicture(picture);
    file.save();
}

TEST_F(Renderer, KeepsTagsAndTheCoverOrSaysWhatIsLost) {
    Write("in.flac", NoiseSamples(200000, 12000), 48000, 2, kFlac16);
    EXPECT_EQ(Shell("cp in.flac without.flac"), 0);
    WriteTagged("in.flac");
    const std::string some = "ALBUMARTIST, COMPOSER, LYRICS, MUSICBRAINZ_TRACKID, picture";
    const std::string all =
        "ALBUMARTIST, ARTIST, COMPOSER, DATE, GENRE, LYRICS, MUSICBRAINZ_TRACKID, TITLE, picture";
    const std::pair<std::string, std::string> outputs[] = {
        {"out.wav", ""}, {"out.aiff", ""},  {"out.flac", ""},   {"out.ogg", ""}, {"out.opus", ""},
        {"out.mp3", ""}, {"out.caf", some}, {"out.rf64", some}, {"out.au", all}, {"out.w64", all}};
    for (const auto& [output, lost] : outputs) {
        SCOPED_TRACE(output);
        std::string said = fmt::format(
            "orvane: {} is written without REPLAYGAIN_TRACK_GAIN, because the loudness has "
            "changed\n",
            output);
        if (!lost.empty()) said = fmt::format("orvane: {} cannot keep {}\n{}", output, lost, said);
        EXPECT_EQ(Shell("$ORVANE render -fq --preset off in.flac " + output), 0);
        EXPECT_EQ(Slurp("err"), said);
        // Writing tags does not change the sound.
        const std::string bare = "bare" + fs::path(output).extension().string();
        Report("without.flac " + bare);
        if ((SndfileHandle(bare).format() & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16) {
            EXPECT_EQ(Read(output), Read(bare));
        }
        EXPECT_EQ(Read(output).size(), Read(bare).size());
        if (lost.empty()) {
            TagLib::FileRef file(output.c_str());
            TagLib::PropertyMap fields = file.file()->properties();
            fields.insert("R128_TRACK_GAIN", TagLib::String("-300"));
            file.file()->setProperties(fields);
            file.save();
        }
        said = Report(output + " back.flac --no-gain-tags")["warnings"].Text();
        EXPECT_EQ(said.find("R128_TRACK_GAIN") != std::string::npos, lost.empty()) << said;
        TagLib::FLAC::File back("back.flac", false);
        std::string names;
        for (const auto& [name, values] : back.properties()) {
            names += name.to8Bit() + " ";
            const std::string told = values.toString().to8Bit(true);
            EXPECT_EQ(told, name == "DATE"                  ? "2001-02-03"
                            : name == "MUSICBRAINZ_TRACKID" ? "1-a"
                                                            : "the Ⓐ of " + name.to8Bit());
        }
        EXPECT_EQ(names, lost == all    ? ""
                         : lost == some ? "ARTIST DATE GENRE TITLE "
                                        : "ALBUMARTIST ARTIST COMPOSER DATE GENRE LYRICS "
                                          "MUSICBRAINZ_TRACKID TITLE ");
        const auto pictures = back.pictureList();
        ASSERT_EQ(pictures.size(), lost.empty() ? 1U : 0U);
        if (!lost.empty()) continue;
        EXPECT_TRUE(pictures.front()->data() == kCover);
        EXPECT_EQ(pictures.front()->type(), TagLib::FLAC::Picture::BackCover);
        // The disk has room for the sound, but not for the tags.
        std::ofstream(output) << "old";
        setenv("BLOCKS", std::to_string(fs::file_size(bare) / 512 + 100).c_str(), 1);
        EXPECT_EQ(Shell("trap '' XFSZ; ulimit -f $BLOCKS; $ORVANE render -fq in.flac " + output),
                  1);
        ExpectOneLine(output);
        EXPECT_EQ(Slurp(output), "old");
    }
}

// Returns the gain tags of a file, such as "R128_TRACK_GAIN=-300 ".
std::string GainTagsOf(const std::string& path) {
    std::string text;
    const TagLib::FileRef file(path.c_str(), false);
    if (file.isNull()) return "";
    for (const auto& [name, values] : file.file()->properties())
        if (name.startsWith("REPLAYGAIN_") || name.startsWith("R128_"))
            text += name.to8Bit() + "=" + values.front().to8Bit() + " ";
    return text;
}

TEST_F(Renderer, WritesTheGainOfTheOutputForPlayers) {
    fs::create_directory("in");
    for (const auto& [name, amplitude] : {std::pair("in/1.flac", 0.5), {"in/2.flac", 0.05}})
        Write(name, Sine(amplitude, 1000, 48000, 1, 4), 48000, 1, kFlac16);
    // A sine of 1 kHz at -6 dB over one channel has -9.03 LUFS.
    const std::string track = "REPLAYGAIN_TRACK_GAIN=-8.96 dB REPLAYGAIN_TRACK_PEAK=0.49";
    const std::pair<std::string, std::string> outputs[] = {{"out.flac", track},
                                                           {"out.ogg", track},
                                                           {"out.mp3", track},
                                                           {"out.opus", "R128_TRACK_GAIN=-35"},
                                                           {"out.wav", ""},
                                                           {"out.w64", ""},
                                                           {"out.flac -q", ""},
                                                           {"out.flac --no-gain-tags", ""},
                                                           {"out.aiff -q --gain-tags", track}};
    for (const auto& [output, tags] : outputs) {
        EXPECT_EQ(Shell("$ORVANE render -f --preset off in/1.flac " + output), 0);
        const std::string found = GainTagsOf(output.substr(0, output.find(' ')));
        EXPECT_EQ(found.substr(0, tags.size()), tags) << output << ": " << found;
        EXPECT_EQ(found.empty(), tags.empty()) << output << ": " << found;
    }
    EXPECT_EQ(Shell("$ORVANE album --preset off in all && $ORVANE album --preset off in q -q"), 0);
    // The relative gate ignores the softer track.
    const std::string album = "REPLAYGAIN_ALBUM_GAIN=-8.7";
    EXPECT_EQ(GainTagsOf("all/1.flac").substr(0, album.size()), album);
    EXPECT_EQ(GainTagsOf("all/2.flac").substr(0, album.size()), album);
    EXPECT_NE(GainTagsOf("all/2.flac").find("TRACK_GAIN=+11.0"), std::string::npos);
    EXPECT_EQ(GainTagsOf("q/1.flac"), "");

    // Tags that are replaced are not reported as lost, and those of an album are.
    WriteTagged("in/1.flac");
    EXPECT_EQ(Report("in/1.flac new.flac")["warnings"].Size(), 0);
    EXPECT_EQ(Shell("$ORVANE render -f --preset off all/1.flac new.flac"), 0);
    EXPECT_NE(Slurp("err").find("without REPLAYGAIN_ALBUM_GAIN, REPLAYGAIN_ALBUM_PEAK,"),
              std::string::npos);

    Write("noise.wav", NoiseSamples(200000, 12000), 48000, 2);
    for (const char* const ending : {"ogg", "opus", "mp3"}) {
        const std::string out = std::string("out.") + ending;
        uintmax_t last = 0;
        for (const char* const quality : {"0", "4.5", "10"}) {
            EXPECT_EQ(Shell("$ORVANE render -fq noise.wav --quality " + (quality + (" " + out))),
                      0);
            EXPECT_GT(fs::file_size(out), 1.2 * static_cast<double>(last)) << out << quality;
            last = fs::file_size(out);
        }
    }
}

TEST_F(Renderer, MessagesHaveTheStatedWords) {
    Write("in.wav", NoiseSamples(8000, 3000), 44100, 2);
    std::ofstream("song.m4a", std::ios::binary) << std::string(
        "\0\0\0\x20"
        "ftypM4A ",
        12);
    const std::pair<std::string, std::string> rows[] = {
        {"--version", "orvane 2.1.0.2"},
        {"info", "  record       tag 0x41454C54, interface 2.0, 1 effect(s)"},
        {"info", "(normal mode)"},
        {"info", "  control      interface 2.0, flags 0x00000010 (insert effect, last)"},
        {"info", "  0x20003  PARAM_PLAYBACKGAIN_RATIO   --ratio          0 to 10        default 1"},
        {"info",
         "  0x08006  PARAM_GET_SAMPLING_RATE                     32000 to 48000 answers "
         "44100"},
        {"render -f in.wav out.wav --ratio 2", "--ratio does nothing without --playback-gain"},
        {"render -f in.wav out.wav --preset night --ratio 2 --no-equalizer",
         "  preset night: playback gain (ratio 2, volume 1, max-gain 12 (+21.6 dB)), output-gain "
         "0.25 (-12.0 dB)"},
        {"render song.m4a new.wav",
         "song.m4a cannot be read: Format not recognised; ffmpeg says: "},
        {"render --skip-existing in.wav out.wav", "out.wav exists already, skipped"},
        {"render --help",
         "  --ratio NUMBER                  Levelling strength: a level that is L dB away from"},
        {"render --help", "  night                           a loudness range of 5 LU or"},
        {"--man-page", "\\-\\-skip\\-existing"},
        {"compare long.flac out.html --page page", "long.flac is longer than 10 minutes"},
        {"compare - out.html --page page <long.flac", "- is longer than 10 minutes"},
        {"compare in.wav out.html --page in.wav",
         "in.wav is not an orvane.html, which a piece can be put into"},
        {"compare in.wav in.wav -f --page page", "IN and OUT are the same file"},
        {"compare in.wav out.html --page /dev/zero", "/dev/zero is not an orvane.html"},
        {"compare in.wav ''", "OUT is empty"},
        {"compare in.wav out.html --page=", "--page is empty"},
        {"info ''", "LIBRARY is empty"},
        {"rendr in.wav out.wav",
         "orvane: no command is called \"rendr\"; the commands are render "},
    };
    Write("long.flac", std::vector<int16_t>(size_t{601} * 8000), 8000, 1, kFlac16);
    std::ofstream("page") << "<!-- piece -->";
    for (const auto& [line, words] : rows) {
        Shell("$ORVANE " + line);
        EXPECT_NE((Slurp("out") + Slurp("err")).find(words), std::string::npos)
            << line << ": " << words << '\n'
            << Slurp("out") << Slurp("err");
    }
    for (const char* line :
         {"for c in '' render picture compare response tone info; do $ORVANE $c --help >help;"
          "  ! grep '.\\{101\\}' help && test $(grep -c '^  orvane r\\|parallel' help) = 3 || exit "
          "1; done",
          "$ORVANE --man-page | LC_ALL=C.UTF-8 man --warnings -l - 2>&1 >page | (! grep .)",
          "$ORVANE --bash-completion >complete && bash -c '. ./complete; "
          "  try() { COMP_WORDS=(orvane \"$@\"); COMP_CWORD=$#; _orvane; echo \"${COMPREPLY[*]}\"; "
          "};"
          "  try rend; try render --skip; try render --preset ni' >tried &&"
          "  printf 'render\\n--skip-existing\\nnight\\n' | cmp - tried",
          "echo '<!-- piece -->' >bare && $ORVANE compare in.wav a.html --page bare --tone 60:6 "
          "--save saved &&"
          "  $ORVANE render in.wav tone.wav --tone 60:6 --save wanted && cmp saved wanted &&"
          "  ! $ORVANE compare in.wav b.html --page bare --save saved && test ! -e b.html",
          "$ORVANE render --skip-existing in.wav out.wav &&"
          "  ! $ORVANE render --skip-existing -f in.wav out.wav"})
        EXPECT_EQ(Shell(line), 0) << line << '\n' << Slurp("out") << Slurp("err");
}

TEST_F(Renderer, RespectsUmaskForeignFilesAndSlowReaders) {
    Write("in.wav", NoiseSamples(88200, 3000), 44100, 2);
    for (const char* line :
         {"umask 027; $ORVANE render in.wav mode.wav && test $(stat -c %a mode.wav) = 640",
          // A file that appears while its name is being rendered is not overwritten.
          "mkfifo pipe; $ORVANE render - came.wav <pipe & exec 3>pipe;"
          "$ORVANE render in.wav - | head -c 50000 >&3;"
          "for try in $(seq 100); do sleep 0.1; ls .came-* && break; done; echo old >came.wav;"
          "exec 3>&-; ! wait $! && echo old | cmp - came.wav",
          // The reader is slower than a non-blocking pipe.
          "perl -MFcntl -e 'fcntl STDOUT, F_SETFL, O_WRONLY | O_NONBLOCK; exec @ARGV' $ORVANE"
          "  render in.wav - | (sleep 0.3; cat) >piped && $ORVANE render in.wav - | cmp - piped",
          // A small file is a plain WAV file even if its length was not known in advance.
          "cat in.wav | $ORVANE render - small.wav && head -c 4 small.wav | grep RIFF"})
        EXPECT_EQ(Shell(line), 0) << line << '\n' << Slurp("err");
}

TEST_F(Renderer, LeavesOutPicturesThatTheFormatCannotHold) {
    Write("in.mp3", NoiseSamples(20000, 3000), 44100, 2, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    {
        TagLib::MPEG::File file("in.mp3");
        for (const unsigned size : {1U << 24, 1000U}) {
            auto* const picture = new TagLib::ID3v2::AttachedPictureFrame;
            picture->setMimeType("image/png");
            picture->setPicture(TagLib::ByteVector(size, 'c'));
            file.ID3v2Tag(true)->addFrame(picture);
        }
        file.save();
    }
    EXPECT_EQ(Shell("$ORVANE render -q in.mp3 out.flac"), 0);
    EXPECT_NE(Slurp("err").find("cannot keep picture of 16777"), std::string::npos) << Slurp("err");
    EXPECT_EQ(Read("out.flac").size(), 20000);
    EXPECT_EQ(TagLib::FLAC::File("out.flac").pictureList().size(), 1);
    for (const std::string output : {"out.mp3", "out.opus", "out.wav"}) {
        EXPECT_EQ(Shell("$ORVANE render -q in.mp3 " + output), 0);
        EXPECT_EQ(Slurp("err"), "") << output;
    }
}

// Tests what happens beyond 4 GiB, with a lower limit.
TEST_F(Renderer, AWavFileTooLongForItsHeaderBecomesRf64) {
    const std::vector<int16_t> samples = NoiseSamples(5000, 3000);
    // AIFF has no larger form. It is refused at once, or when the limit is reached if the length is
    // not known.
    EXPECT_THROW(OpenAudioWriter("out.aiff", true, {44100, 2, 2500, 9999}, {}), std::exception);
    EXPECT_THROW(OpenAudioWriter("out.aiff", true, {44100, 2, {}, 9999}, {})->Write(samples),
                 std::exception);
    EXPECT_NO_THROW(OpenAudioWriter("out.aiff", true, {44100, 2, 2500, 10004}, {})->Write(samples));
    for (const uint64_t most : {9999U, 11000U}) {
        auto writer = OpenAudioWriter("out.wav", true, {44100, 2, 2500, most}, {});
        writer->Write(samples);
        writer->Commit();
        EXPECT_EQ(Slurp("out.wav").substr(0, 4), most < 10000 ? "RF64" : "RIFF");
        EXPECT_EQ(Read<int16_t>("out.wav"), samples);
    }
}

}  // namespace
