// Tests what the renderer keeps of a file besides its sound and tags, and how it handles long and
// malicious names.
#include <fmt/core.h>
#include <gtest/gtest.h>
#include <sys/xattr.h>
#include <taglib/fileref.h>
#include <taglib/tpropertymap.h>

#include "render/audio/marks.h"
#include "tests/library_under_test.h"
#include "tests/renderer_fixture.h"

namespace {

// Return 32-bit numbers as files store them: Low as RIFF does (little-endian), High as FLAC and ID3
// do (big-endian).
std::string Low(std::initializer_list<uint32_t> words) {
    std::string bytes;
    for (const uint32_t word : words)
        for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift);
    return bytes;
}
std::string High(size_t number) {
    const std::string low = Low({static_cast<uint32_t>(number)});
    return {low.rbegin(), low.rend()};
}
std::string Chunk(const std::string& name, const std::string& bytes) {
    return name + Low({static_cast<uint32_t>(bytes.size())}) + bytes +
           std::string(bytes.size() % 2, '\0');
}
std::string Cue(uint32_t place) {
    return Chunk("cue ", Low({1, 7, place}) + "data" + Low({0, 0, place}));
}
std::string Loop(uint32_t periodNs, uint32_t first, uint32_t last) {
    return Chunk("smpl", Low({0, 0, periodNs, 60, 0, 0, 0, 1, 0, 0, 0, first, last, 0, 0}));
}
std::string Broadcast(uint32_t time, const std::string& loudness) {
    return Chunk("bext", std::string(338, 'b') + Low({time, 0}) + '\2' + '\0' +
                             std::string(64, 'u') + loudness + std::string(181, 'r'));
}

// Returns the start and title of each chapter.
std::string Chapters(const std::string& path) {
    Shell("ffprobe -v error -of csv=p=0 -show_entries chapter=start_time:chapter_tags=title " +
          path);
    return Slurp("out");
}

TEST_F(Renderer, MarksOfWavFilesKeepTheirPlaceInTheSound) {
    const std::string label = Chunk("labl", Low({7}) + "Intro" + '\0');
    const std::string labels = Chunk("LIST", "adtl" + label);
    const std::string region = Chunk("LIST", "adtl" + Chunk("ltxt", Low({7, 441, 0, 0, 0})));
    const std::string inst = Chunk("inst", std::string("\x3C\0\0\0\x7F\1\x7F", 7));
    const std::string unknown(10, '\x7F'), known("lLrRmMsSxX");
    const auto all = [&](uint32_t time, const std::string& loudness, uint32_t cue, uint32_t loop) {
        return std::vector{Broadcast(time, loudness),   Cue(cue), labels, region, inst,
                           Loop(45351, loop, loop + 99)};
    };
    Write("in.wav", NoiseSamples(44100, 3000), 22050, 1);
    std::ofstream in("in.wav", std::ios::binary | std::ios::app);
    for (const std::string& chunk : all(90000, known, 22050, 500)) in << chunk;
    in << Chunk("iXML", "<a/>");
    in.close();
    std::string quiet;
    for (int i = 0; i < 5; ++i) quiet += "\xFF\x7F";
    const std::string beside = "bext chunk, adtl chunk, inst chunk, smpl chunk, iXML chunk";
    for (const std::string output : {"out.wav", "out.rf64", "out.wav --keep-delay --eq 9=0.2"}) {
        const Json report = Report("in.wav " + output);
        EXPECT_NE(report["warnings"].Text().find("cannot keep iXML chunk\""), std::string::npos)
            << output;
        const uint32_t delay =
            output.ends_with("0.2") ? (static_cast<uint32_t>(report["delayFrames"]) + 1) / 2 : 0;
        const std::string bytes = Slurp(output.substr(0, output.find(' ')));
        for (const std::string& chunk : all(90000 - delay, quiet, 22050 + delay, 500 + delay))
            EXPECT_NE(bytes.find(chunk), std::string::npos) << output << chunk;
        const std::string length = Low({static_cast<uint32_t>(bytes.size()) - 8});
        EXPECT_EQ(bytes.substr(output == "out.rf64" ? 20 : 4, 4), length) << output;
    }
    for (const std::string output : {"out.flac", "out.ogg", "out.opus", "out.mp3"}) {
        EXPECT_NE(
            Report("in.wav " + output)["warnings"].Text().find("cannot keep " + beside + "\""),
            std::string::npos)
            << output;
        EXPECT_EQ(Chapters(output), "1.000000,Intro\n") << output;
    }
    EXPECT_NE(Report("in.wav out.caf")["warnings"].Text().find("cue chunk"), std::string::npos);

    // Tested without the program, because today no format with loops gets another rate.
    Marks marks{{{"smpl", Loop(45351, 22050, 44099).substr(8)},
                 {"adtl", region.substr(12)},
                 {"cue ", Cue(44099).substr(8)}},
                "",
                {},
                22050};
    marks.Move(48000, 100);
    EXPECT_EQ(marks.chunks[0].bytes, Loop(20833, 48100, 96099).substr(8));
    EXPECT_EQ(marks.chunks[1].bytes, Chunk("ltxt", Low({7, 960, 0, 0, 0})));
    EXPECT_EQ(marks.chunks[2].bytes, Cue(96098).substr(8));
}

// Returns a cue sheet with tracks at 0 and 3 s. The sound of the second begins half a second later.
std::string CueSheet(bool isDisc, uint32_t delay) {
    const auto frame = [](uint32_t place) { return std::string(4, '\0') + High(place); };
    const auto track = [&](uint32_t place, char number, char indices) {
        return frame(place) + number + std::string(26, '\0') + indices;
    };
    return "12" + std::string(126, '\0') + frame(isDisc ? 88200 : 0) + (isDisc ? '\x80' : '\0') +
           std::string(258, '\0') + '\3' + track(delay, 1, 1) + frame(0) + '\1' +
           std::string(3, '\0') + track(132300 + delay, 2, 2) + frame(0) + std::string(4, '\0') +
           frame(22050) + '\1' + std::string(3, '\0') +
           track(176400 + delay, isDisc ? '\xAA' : '\xFF', 0);
}

TEST_F(Renderer, ACueSheetStaysOrBecomesCuesOrChapters) {
    Write("in.flac", NoiseSamples(176400, 3000), 44100, 1, kFlac16);
    std::string bytes = Slurp("in.flac");
    bytes.insert(42, '\5' + High(CueSheet(true, 0).size()).substr(1) + CueSheet(true, 0));
    bytes.insert(42, '\2' + High(8).substr(1) + "orvaDATA");
    std::ofstream("in.flac", std::ios::binary) << bytes;
    for (const std::string options : {"", "--keep-delay --eq 9=0.2 "}) {
        const Json report = Report(options + "in.flac out.flac");
        EXPECT_EQ(report["warnings"].Text(), R"(["out.flac cannot keep orva application block"])");
        const uint32_t delay = options.empty() ? 0 : static_cast<uint32_t>(report["delayFrames"]);
        EXPECT_NE(Slurp("out.flac").find(CueSheet(options.empty(), delay)), std::string::npos);
        EXPECT_EQ(Read("out.flac").size(), 176400 + delay);
    }
    for (const std::string output : {"out.wav", "out.opus", "out.mp3"}) {
        EXPECT_NE(
            Report("in.flac " + output)["warnings"].Text().find("cannot keep catalogue numbers"),
            std::string::npos);
        EXPECT_EQ(Chapters(output), "0.000000,Track 1\n3.500000,Track 2\n") << output;
    }
    // A cue sheet with another number of tracks would make the output unreadable.
    bytes[bytes.find(CueSheet(true, 0)) + 395] = '\2';
    std::ofstream("damaged.flac", std::ios::binary) << bytes;
    EXPECT_NE(Report("damaged.flac out.flac")["warnings"].Text().find("damaged cue sheet"),
              std::string::npos);
    EXPECT_EQ(Read("out.flac").size(), 176400);
}

TEST_F(Renderer, CopiesId3FramesWithoutAFieldName) {
    const auto frame = [](const std::string& name, const std::string& bytes) {
        return name + High(bytes.size()) + std::string(2, '\0') + bytes;
    };
    const auto chapter = [&](uint32_t offset) {
        return frame("CHAP",
                     std::string("c1\0", 3) + High(500) + High(1500) + High(offset) + High(offset));
    };
    const std::string frames[] = {
        frame("CTOC", std::string("toc\0\3\1c1\0", 9)),
        frame("GEOB", std::string("\0text/plain\0f\0d\0object", 22)),
        frame("POPM", std::string("a@b\0\x99\0\0\0\7", 9)),
        frame("PRIV", std::string("owner\0\1\0\2", 9)),
        frame("SYLT", std::string("\0eng\2\1\0la\0\0\0\0d", 14)),
    };
    std::string tag = frame("RVA2", std::string("a\0\1\1\0\0", 6)) + chapter(99);
    for (const std::string& one : frames) tag += one;
    Write("in.wav", NoiseSamples(88200, 3000), 44100, 1);
    Report("in.wav bare.mp3");
    std::string bare = Slurp("bare.mp3");
    bare.erase(0, bare.find("\xFF\xFB"));
    std::ofstream("in.mp3", std::ios::binary)
        << std::string("ID3\3\0\0\0\0", 8) << static_cast<char>(tag.size() >> 7)
        << static_cast<char>(tag.size() & 0x7F) << tag << bare;
    std::string source = "in.mp3 ";
    for (const std::string output : {"out.wav", "out.aiff", "out.mp3"}) {
        const std::string notes = Report(source + output + " --no-gain-tags")["warnings"].Text();
        EXPECT_EQ(notes.find("cannot keep"), std::string::npos) << notes;
        EXPECT_EQ(notes.find("RVA2") != std::string::npos, source == "in.mp3 ") << notes;
        const std::string bytes = Slurp(output);
        EXPECT_NE(bytes.find(chapter(0xFFFFFFFF)), std::string::npos) << output;
        for (const std::string& one : frames)
            EXPECT_NE(bytes.find(one), std::string::npos) << output << one;
        source = output + " ";
    }
    EXPECT_NE(Report("out.mp3 out.ogg")["warnings"].Text().find("SYLT"), std::string::npos);
}

TEST_F(Renderer, AFileRenderedInPlaceKeepsWhatItsOwnerGaveIt) {
    Write("in.wav", NoiseSamples(8000, 3000), 44100, 2);
    ASSERT_EQ(setxattr("in.wav", "user.origin", "a shop", 6, 0), 0) << std::strerror(errno);
    const bool isRoot = getuid() == 0;
    for (const std::string& line :
         {std::string(isRoot ? "chown 1234:2345 in.wav; " : "") +
              "chmod 4751 in.wav; touch -d '2001-02-03 04:05:06.7' in.wav;"
              "stat -c '%u %g %a %y' in.wav >before; $ORVANE render in.wav in.wav -f --keep-times "
              "&&"
              "stat -c '%u %g %a %y' in.wav | cmp - before",
          // A new file has the present time, unless the source's is asked for.
          std::string("$ORVANE render in.wav new.wav && test $(stat -c %Y new.wav) -gt 1700000000"),
          std::string("$ORVANE render - old.wav --keep-times <in.wav && test ! old.wav -nt in.wav"),
          std::string("! cat in.wav | $ORVANE render - no.wav --keep-times && test ! -e no.wav"),
          std::string("! $ORVANE render in.wav - --keep-times >no.wav && test ! -s no.wav")})
        EXPECT_EQ(Shell(line), 0) << line << '\n' << Slurp("err");
    char value[6];
    EXPECT_EQ(getxattr("in.wav", "user.origin", value, sizeof value), 6);
    EXPECT_EQ(std::string(value, 6), "a shop");
    EXPECT_LT(getxattr("new.wav", "user.origin", value, sizeof value), 0);
}

TEST_F(Renderer, NamesAreAsLongAsTheFileSystemTakes) {
    Write("in.wav", NoiseSamples(8000, 3000), 44100, 2);
    for (const size_t length : {247U, 248U, 254U, 255U, 256U})
        for (const std::string letter : {"a", "ü"}) {
            std::string name = length % 2 == 0 ? "" : "o";
            while (name.size() < length - 4) name += letter;
            const std::string settings = "." + name.substr(0, length - 1);
            EXPECT_EQ(Shell(fmt::format("$ORVANE render in.wav {}.wav --save {}", name, settings)),
                      length == 256 ? 1 : 0);
            std::error_code tooLong;
            for (const std::string& made : {name + ".wav", settings})
                EXPECT_EQ(fs::exists(made, tooLong), length <= 255) << made;
        }
}

// Returns whether a terminal would act on the text, apart from line ends.
bool ActsOnTerminals(const std::string& text) {
    const auto isIn = [&text](size_t at, unsigned first, unsigned last) {
        const unsigned byte = at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
        return first <= byte && byte <= last;
    };
    for (size_t n = 0; n < text.size(); ++n) {
        if ((isIn(n, 0, 0x1F) && text[n] != '\n') || isIn(n, 0x7F, 0x7F)) return true;
        // In UTF-8: U+0080 to U+009F, U+2028 to U+202E, U+2066 to U+2069.
        if (isIn(n, 0xC2, 0xC2) && isIn(n + 1, 0x80, 0x9F)) return true;
        if (isIn(n, 0xE2, 0xE2) && isIn(n + 1, 0x80, 0x80) && isIn(n + 2, 0xA8, 0xAE)) return true;
        if (isIn(n, 0xE2, 0xE2) && isIn(n + 1, 0x81, 0x81) && isIn(n + 2, 0xA6, 0xA9)) return true;
        // A byte by itself, on which terminals of 8 bits act.
        if (isIn(n, 0x80, 0x9F) && (n == 0 || isIn(n - 1, ' ', '~'))) return true;
    }
    return false;
}

TEST_F(Renderer, NamesTagsAndSettingsDoNothingToTheTerminal) {
    // Contains ESC, a line end, DEL and, in UTF-8, CSI and an override of the writing direction.
    // The letters ü and € must be kept.
    const std::string evil =
        "ü\x1B]0;a\a\n\x7F\xC2\x9B"
        "2J\xE2\x80\xAE€";
    const std::string shown = R"(ü\u001b]0;a\u0007\u000a\u007f\u009b2J\u202e€)";
    Write("in.mp3", NoiseSamples(20000, 3000), 44100, 1, SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    {
        TagLib::FileRef file("in.mp3");
        TagLib::PropertyMap fields;
        fields.insert(TagLib::String(evil, TagLib::String::UTF8), TagLib::String("b"));
        file.file()->setProperties(fields);
        file.save();
    }
    const std::string name = evil + ".mp3";
    fs::rename("in.mp3", name);
    std::ofstream(evil) << evil << " = 1\n";
    setenv("IN", name.c_str(), 1);
    setenv("EVIL", evil.c_str(), 1);
    for (const char* line :
         {"$ORVANE render \"$IN\" \"$EVIL.au\" --preset off --save \"$EVIL.set\"",
          "$ORVANE render \"$IN\" \"$EVIL.au\" --skip-existing",
          "! $ORVANE render \"$IN\" \"$EVIL.au\"",
          "! $ORVANE render \"$IN\" out.wav --preset \"./$EVIL\"",
          "! $ORVANE render \"$IN\" out.wav --ratio \"$EVIL\"",
          "! $ORVANE render \"$IN\" \"$EVIL\"", "! $ORVANE render out.wav out.wav \"--$EVIL\"",
          "! $ORVANE \"$EVIL\"", "! $ORVANE tone \"$EVIL\"", "! $ORVANE info \"$EVIL\"",
          "! $ORVANE compare \"$IN\" out.html --page \"$IN\"",
          "$ORVANE render \"$IN\" \"$EVIL.au\" -f --json --preset \"$EVIL.set\""}) {
        EXPECT_EQ(Shell(line), 0) << line;
        const std::string said = Slurp("out") + Slurp("err");
        EXPECT_FALSE(ActsOnTerminals(said)) << line << said;
        EXPECT_NE(said.find(shown.substr(0, 10)), std::string::npos) << line << said;
        if (*line == '!') ExpectOneLine(line);
    }
    EXPECT_EQ(Json(Slurp("out"))["input"].String(), name);
    EXPECT_NE(Slurp("err").find("cannot keep ü\\u001b]0;A"), std::string::npos) << Slurp("err");
    EXPECT_EQ(Shell("$ORVANE render \"$IN\" plain.wav --preset off"), 0);
    EXPECT_NE(Slurp("err").find(shown + ".mp3 -> plain.wav\n"), std::string::npos) << Slurp("err");
    // The name contains a byte of Latin-1, and one on which 8-bit terminals act.
    EXPECT_EQ(Shell("$ORVANE render $'\xFC\x9B.wav' out.wav"), 1);
    EXPECT_NE(Slurp("err").find("\xFC\\x9b.wav"), std::string::npos) << Slurp("err");
}

TEST_F(Renderer, SuggestedCommandsNameTheFileAndNothingElse) {
    for (const std::string name : {"it's $(touch owned); `b`.wav", "-ü\x1B[31m\\.wav"}) {
        Write("./" + name, NoiseSamples(6000, 3000), 44100, 6);
        setenv("IN", name.c_str(), 1);
        EXPECT_EQ(Shell("$ORVANE render -- \"$IN\" new.wav"), 1);
        fs::copy_file("err", "said", fs::copy_options::overwrite_existing);
        EXPECT_EQ(Shell("bash -c 'sox() { test -e \"$1\" && echo $2$3; }; "
                        "eval \"$(sed \"s/.*example with//\" said)\"'"),
                  0);
        EXPECT_EQ(Slurp("out"), "-c2\n") << Slurp("said");
        EXPECT_FALSE(fs::exists("owned"));
    }
}

}  // namespace
