// Reads marks from files and writes them to files.
#include <fmt/format.h>
#include <sndfile.h>
#include <taglib/chapterframe.h>
#include <taglib/tableofcontentsframe.h>
#include <taglib/textidentificationframe.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "render/audio/bytes.h"
#include "render/audio/marks.h"
#include "render/audio/tag_stream.h"
#include "render/audio/tags.h"

namespace {

using TagLib::ByteVector;
using TagLib::IOStream;

constexpr uint64_t kMostBytes = 1 << 26;  // the most bytes of marks that are kept of one file
constexpr size_t kFlacInfoEnd = 42;       // where the second metadata block begins

// Lists of four-character names, separated by commas. The first list has chunks that describe the
// old samples or are read elsewhere, the second has those that are kept.
constexpr std::string_view kPassedOver =
    "fmt ,data,fact,ds64,JUNK,junk,PAD ,FLLR,filr,PEAK,levl,id3 ,ID3 ,"
    "COMM,SSND,FVER,NAME,AUTH,(c) ,ANNO,CHAN";
constexpr std::string_view kKept = "cue ,adtl,smpl,plst,bext,inst";

bool IsOneOf(std::string_view name, std::string_view names) {
    return names.find(name) != std::string_view::npos;
}

// Returns whether `name` is a possible chunk name: four printable ASCII characters. Samples that a
// wrong size makes look like a chunk rarely pass.
bool IsName(std::string_view name) {
    return name.size() == 4 &&
           std::all_of(name.begin(), name.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

// Returns `count` bytes of the file from byte `at` on, fewer if the file ends.
std::string ReadAt(int fd, uint64_t at, uint64_t count) {
    std::string bytes(count, '\0');
    const ssize_t got = pread(fd, bytes.data(), count, static_cast<off_t>(at));
    bytes.resize(static_cast<size_t>(std::max<ssize_t>(got, 0)));
    return bytes;
}

// Reads the chunks of WAV, RF64 and AIFF files. AIFF files, which are big-endian, only have their
// chunks' names added to `unread`.
void ReadChunks(int fd, Order order, Marks* marks) {
    uint64_t longSize = 0;  // size of the data chunk of an RF64 file, where 32 bits are too few
    for (uint64_t at = 12;;) {
        const std::string header = ReadAt(fd, at, kChunkHeader + 4);
        std::string name = header.substr(0, 4);
        uint64_t size = Get<uint32_t>(header, 4, order), from = at + kChunkHeader;
        // A second file was joined to the first. No more marks of the first follow.
        if (!IsName(name) || IsOneOf(name, "RIFF,RF64,FORM")) return;
        if (name == "ds64") longSize = Get<uint64_t>(ReadAt(fd, from + 8, 8), 0);
        if (name == "data" && size == UINT32_MAX) size = longSize;
        if (name == "data" && size == 0) return;  // the end of the samples is not known
        // No file is that long, and `at` must not wrap around to a chunk that was read already.
        if (size > INT64_MAX - kChunkHeader - at) return;
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

// Reads the metadata blocks of a FLAC file, which may begin with an ID3 tag.
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
        if ((type & ~kLast) == kCueSheet) {
            std::string sheet = ReadAt(fd, at + 4, size);
            if (IsCueSheet(sheet))
                marks->cueSheet = std::move(sheet);
            else
                marks->unread.emplace_back("damaged cue sheet");
        }
        if ((type & ~kLast) == kApplication && IsName(header.substr(4)))
            marks->unread.push_back(header.substr(4) + " application block");
        at += 4 + size;
    }
}

void Write(TagStream* stream, const std::string& bytes) {
    stream->writeBlock({bytes.data(), static_cast<unsigned>(bytes.size())});
}

// Appends chunks to a WAV or RF64 file and corrects the size in its header.
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

// Converts a mark's name. Labels of WAV files have no declared encoding: names that are not UTF-8
// are taken as Latin-1.
TagLib::String TextOf(const std::string& name) {
    const TagLib::String text(name, TagLib::String::UTF8);
    return text.isEmpty() ? TagLib::String(name) : text;
}

unsigned Milliseconds(uint64_t frame, uint32_t rateHz) {
    return static_cast<unsigned>((frame * 1000 + rateHz / 2) / rateHz);
}

// Adds chapters as Ogg and FLAC files have them: CHAPTER001=00:01:02.500 and CHAPTER001NAME.
// Returns false if there are more than 999 points, or if the tags already have chapters.
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

// Adds chapters as ID3 has them: one frame for each, and one frame that lists them. Returns false
// if the tags already have chapters.
bool AddChapterFrames(const std::vector<Mark>& points, const Sound& sound, AudioTags* tags) {
    constexpr unsigned kNoOffset = 0xFFFFFFFF;  // for byte offsets: the times count
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
        chapter.addEmbeddedFrame(title.release());  // the chapter takes ownership
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
