// Marks from files and into them.
#include <fmt/format.h>
#include <sndfile.h>
#include <taglib/chapterframe.h>
#include <taglib/tableofcontentsframe.h>
#include <taglib/textidentificationframe.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>

#include "render/audio/byte_numbers.h"
#include "render/audio/marks.h"
#include "render/audio/tag_stream.h"
#include "render/audio/tags.h"

namespace {

using TagLib::ByteVector;
using TagLib::IOStream;

constexpr uint64_t kMostBytes = 1 << 26;  // kept of one file
constexpr size_t kFlacInfoEnd = 42;       // where blocks may follow the first

// Names of four letters, parted by commas: what describes the old samples or is read elsewhere, and
// what is kept.
constexpr std::string_view kPassedOver =
    "fmt ,data,fact,ds64,JUNK,junk,PAD ,FLLR,filr,PEAK,levl,id3 ,ID3 ,"
    "COMM,SSND,FVER,NAME,AUTH,(c) ,ANNO,CHAN";
constexpr std::string_view kKept = "cue ,adtl,smpl,plst,bext,inst";

bool IsOneOf(std::string_view name, std::string_view names) {
    return names.find(name) != std::string_view::npos;
}

// Sound that a wrong size exposes as a chunk has no such name.
bool IsName(std::string_view name) {
    return name.size() == 4 &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// At most `count` bytes of the file from `at` on.
std::string ReadAt(int fd, uint64_t at, uint64_t count) {
    std::string bytes(count, '\0');
    const ssize_t got = pread(fd, bytes.data(), count, static_cast<off_t>(at));
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

// Of WAV, RF64 and AIFF files; those of AIFF, which has high bytes first, are only named.
void ReadChunks(int fd, Order order, Marks* marks) {
    uint64_t longSize = 0;  // of the samples in RF64, where 32 bits don't hold it
    for (uint64_t at = 12;;) {
        const std::string header = ReadAt(fd, at, kChunkHeader + 4);
        std::string name = header.substr(0, 4);
        uint64_t size = Get<uint32_t>(header, 4, order), from = at + kChunkHeader;
        // A second file that was joined to the first has no more marks of the first.
        if (!IsName(name) || IsOneOf(name, "RIFF,RF64,FORM")) return;
        if (name == "ds64") longSize = Get<uint64_t>(ReadAt(fd, from + 8, 8), 0);
        if (name == "data" && size == UINT32_MAX) size = longSize;
        if (name == "data" && size == 0) return;  // its end isn't known
        at = from + size + size % 2;
        if (name == "LIST" && size >= 4) {
            name = header.substr(kChunkHeader);
            if (name == "INFO") continue;
            from += 4;
            size -= 4;
        }
        if (IsOneOf(name, kPassedOver)) continue;
        if (size > 0 && ReadAt(fd, from + size - 1, 1).empty()) return;
        if (order == Order::kLowFirst && IsOneOf(name, kKept) &&
            marks->Bytes() + size <= kMostBytes)
            marks->chunks.push_back({name, ReadAt(fd, from, size)});
        else
            marks->unread.push_back(name.substr(0, name.find(' ')) + " chunk");
    }
}

// Of a FLAC file, which may begin with an ID3 tag.
void ReadBlocks(int fd, Marks* marks) {
    constexpr int kLast = 0x80, kApplication = 2, kCueSheet = 5;
    uint64_t at = 0;
    const std::string tag = ReadAt(fd, 0, 10);
    if (tag.starts_with("ID3") && tag.size() == 10) {
        for (size_t i = 6; i < 10; ++i) at = at << 7 | Get<uint8_t>(tag, i);
        at += tag.size();
    }
    if (ReadAt(fd, at, 4) != "fLaC") return;
    at += 4;
    for (int type = 0; (type & kLast) == 0;) {
        const std::string header = ReadAt(fd, at, 8);
        if (header.size() < 8) return;
        type = Get<uint8_t>(header, 0);
        const uint32_t size = Get<uint32_t>(header, 0, Order::kHighFirst) & 0xFFFFFF;
        if ((type & ~kLast) == kCueSheet) marks->cueSheet = ReadAt(fd, at + 4, size);
        if ((type & ~kLast) == kApplication && IsName(header.substr(4)))
            marks->unread.push_back(header.substr(4) + " application block");
        at += 4 + size;
    }
}

void Write(TagStream* stream, const std::string& bytes) {
    stream->writeBlock({bytes.data(), static_cast<unsigned>(bytes.size())});
}

// At the end of a WAV or RF64 file.
void AppendChunks(TagStream* stream, const std::vector<Marks::Chunk>& chunks) {
    stream->seek(0, IOStream::End);
    for (const Marks::Chunk& chunk : chunks) {
        const bool isList = chunk.name == "adtl";
        std::string bytes = (isList ? "LIST" : chunk.name) + std::string(4, '\0');
        bytes += (isList ? chunk.name : "") + chunk.bytes;
        Put<uint32_t>(&bytes, 4, bytes.size() - kChunkHeader);
        Write(stream, bytes.append(bytes.size() % 2, '\0'));
    }
    const auto length = static_cast<uint64_t>(stream->length()) - kChunkHeader;
    stream->seek(0, IOStream::Beginning);
    const bool isLong = stream->readBlock(4) == "RF64";
    std::string number(isLong ? 8 : 4, '\0');
    isLong ? Put<uint64_t>(&number, 0, length) : Put<uint32_t>(&number, 0, length);
    stream->seek(isLong ? 20 : 4, IOStream::Beginning);
    Write(stream, number);
}

void InsertCueSheet(TagStream* stream, const std::string& sheet) {
    std::string block(4, '\0');
    Put<uint32_t>(&block, 0, 0x05000000U | sheet.size(), Order::kHighFirst);
    block += sheet;
    stream->insert({block.data(), static_cast<unsigned>(block.size())}, kFlacInfoEnd, 0);
}

// Labels of WAV files tell no encoding.
TagLib::String TextOf(const std::string& name) {
    const TagLib::String text(name, TagLib::String::UTF8);
    return text.isEmpty() ? TagLib::String(name) : text;
}

unsigned Milliseconds(uint64_t frame, uint32_t rateHz) {
    return static_cast<unsigned>((frame * 1000 + rateHz / 2) / rateHz);
}

// Chapters as Ogg and FLAC files have them: CHAPTER001=00:01:02.500 and CHAPTER001NAME. Returns
// false if there are more than three digits count, or if the tags have chapters already.
bool AddChapterFields(const std::vector<Mark>& points, const Sound& sound, AudioTags* tags) {
    if (points.size() > 999 || tags->fields.contains("CHAPTER001")) return false;
    for (size_t i = 0; i < points.size(); ++i) {
        const unsigned ms = Milliseconds(points[i].frame, sound.rateHz);
        const std::string key = fmt::format("CHAPTER{:03}", i + 1);
        tags->fields.insert(key, {fmt::format("{:02}:{:02}:{:02}.{:03}", ms / 3600000,
                                              ms / 60000 % 60, ms / 1000 % 60, ms % 1000)});
        if (!points[i].name.empty()) tags->fields.insert(key + "NAME", {TextOf(points[i].name)});
    }
    return true;
}

// Chapters as ID3 has them: a frame for each, and one that lists them. Returns false if the tags
// have chapters already.
bool AddChapterFrames(const std::vector<Mark>& points, const Sound& sound, AudioTags* tags) {
    constexpr unsigned kNoOffset = 0xFFFFFFFF;  // in bytes
    constexpr size_t kMostListed = 255;
    if (std::any_of(tags->frames.begin(), tags->frames.end(),
                    [](const Id3Frame& frame) { return frame.name == "CHAP"; }))
        return false;
    TagLib::ID3v2::TableOfContentsFrame list("toc");
    list.setIsTopLevel(true);
    list.setIsOrdered(true);
    for (size_t i = 0; i < points.size(); ++i) {
        const ByteVector id(fmt::format("chp{}", i).c_str());
        const uint64_t end = i + 1 < points.size() ? points[i + 1].frame : sound.frames;
        auto title =
            std::make_unique<TagLib::ID3v2::TextIdentificationFrame>("TIT2", TagLib::String::UTF8);
        title->setText(TextOf(points[i].name));
        TagLib::ID3v2::ChapterFrame chapter(
            id, Milliseconds(points[i].frame, sound.rateHz),
            Milliseconds(std::max(end, points[i].frame), sound.rateHz), kNoOffset, kNoOffset);
        chapter.addEmbeddedFrame(title.release());  // owned by the chapter
        list.addChildElement(id);
        tags->frames.push_back({"CHAP", chapter.render()});
    }
    if (points.size() <= kMostListed) tags->frames.push_back({"CTOC", list.render()});
    return true;
}

}  // namespace

Marks ReadMarks(int fd) {
    Marks marks;
    const std::string magic = ReadAt(fd, 0, 4);
    if (magic == "RIFF" || magic == "RF64") ReadChunks(fd, Order::kLowFirst, &marks);
    if (magic == "FORM" || magic == "RIFX") ReadChunks(fd, Order::kHighFirst, &marks);
    ReadBlocks(fd, &marks);
    return marks;
}

std::vector<std::string> WriteMarks(TagStream* stream, int format, const Sound& sound,
                                    AudioTags* tags) {
    const Marks& marks = tags->marks;
    if (marks.Names().empty()) return {};
    const std::vector<Mark> points = marks.Points();
    const int type = format & SF_FORMAT_TYPEMASK;
    if ((type == SF_FORMAT_WAV || type == SF_FORMAT_RF64)) {
        AppendChunks(stream, marks.chunks.empty() ? ChunksOf(points) : marks.chunks);
        return marks.chunks.empty() ? marks.BesidePoints() : std::vector<std::string>();
    }
    if (type == SF_FORMAT_FLAC && !marks.cueSheet.empty()) {
        InsertCueSheet(stream, marks.cueSheet);
        return {};
    }
    if (points.empty()) return marks.Names();
    const bool isXiph = type == SF_FORMAT_FLAC || type == SF_FORMAT_OGG;
    const bool isId3 = type == SF_FORMAT_MPEG || type == SF_FORMAT_AIFF;
    if ((isXiph && AddChapterFields(points, sound, tags)) ||
        (isId3 && AddChapterFrames(points, sound, tags)))
        return marks.BesidePoints();
    return marks.Names();
}
