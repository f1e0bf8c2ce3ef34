// Scans Ogg, FLAC and MP3 files. They are streams of pages or frames, so files can be joined with
// `cat`.
#include <fmt/format.h>

#include <array>
#include <map>

#include "render/audio/source_scan.h"

namespace {

// --- Ogg: RFC 3533 ---

constexpr size_t kPageHeader = 27;

struct Page {
    bool starts, ends;  // whether the page is the first or last of its logical stream
    uint64_t serial, number, bytes;
};

std::optional<Page> PageAt(ByteWindow& file, uint64_t at) {
    const std::string_view head = file.At(at, kPageHeader);
    if (head.size() < kPageHeader || !head.starts_with("OggS")) return std::nullopt;
    const auto segments = static_cast<unsigned char>(head[26]);
    Page page{(head[5] & 2) != 0, (head[5] & 4) != 0, LittleEndian(head.substr(14, 4)),
              LittleEndian(head.substr(18, 4)), kPageHeader + segments};
    for (const char segment : file.At(at + kPageHeader, segments))
        page.bytes += static_cast<unsigned char>(segment);
    return page;
}

// Returns where `magic` stands next at or after `at`, or the file's size if nowhere.
uint64_t Find(ByteWindow& file, std::string_view magic, uint64_t at) {
    while (true) {
        const std::string_view bytes = file.At(at, ByteWindow::kMostBytes);
        if (const size_t found = bytes.find(magic); found != std::string_view::npos)
            return at + found;
        if (bytes.size() < ByteWindow::kMostBytes) return file.Size();
        at += bytes.size() - magic.size() + 1;
    }
}

// The pages of one file, which may be joined with others.
struct Link {
    uint64_t from = 0;
    bool hasAudio = false;  // pages other than those that start a stream were seen
    bool isOpen = true;     // no page that ends a stream was seen
    uint64_t missing = 0;
    std::map<uint64_t, uint64_t> nextNumber;  // the expected page number of each serial

    void Take(const Page& page) {
        const auto expected = nextNumber.find(page.serial);
        if (expected != nextNumber.end() && page.number > expected->second)
            missing += page.number - expected->second;
        nextNumber[page.serial] = page.number + 1;
        hasAudio = hasAudio || !page.starts;
        isOpen = isOpen && !page.ends;
    }
    void Report(SourceScan* scan) const {
        if (missing > 0)
            scan->damage.push_back(fmt::format("{} of its Ogg pages are missing", missing));
    }
};

// --- MP3: ISO 11172-3 and 13818-3 ---

struct Mp3Frame {
    uint64_t bytes, samples;
    // where the name of a count stands, if the frame holds a frame count instead of sound
    uint64_t tagAt;
    int version;  // 0 is MPEG 2.5, 2 is MPEG 2, 3 is MPEG 1
    int layer;
    uint64_t rateHz;

    bool GoesWith(const Mp3Frame& other) const {
        return version == other.version && layer == other.layer && rateHz == other.rateHz;
    }
};

std::optional<Mp3Frame> FrameAt(ByteWindow& file, uint64_t at) {
    const std::string_view head = file.At(at, 4);
    if (head.size() < 4) return std::nullopt;
    const uint64_t bits = BigEndian(head);
    const int version = static_cast<int>(bits >> 19 & 3),
              layer = 4 - static_cast<int>(bits >> 17 & 3);
    const size_t bitRate = bits >> 12 & 15, rate = bits >> 10 & 3;
    // A free bit rate (0) does not tell how long the frame is.
    if (bits >> 21 != 0x7FF || version == 1 || layer == 4 || bitRate == 0 || bitRate == 15 ||
        rate == 3)
        return std::nullopt;
    constexpr std::array<std::array<uint64_t, 15>, 5> kKilobits{{
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160},
    }};
    constexpr std::array<uint64_t, 3> kRates{44100, 48000, 32000};
    const bool first = version == 3;
    Mp3Frame frame{};
    frame.version = version;
    frame.layer = layer;
    frame.rateHz = kRates.at(rate) >> (first ? 0 : version == 2 ? 1 : 2);
    frame.samples = layer == 1 ? 384 : layer == 2 || first ? 1152 : 576;
    const size_t row = static_cast<size_t>(first ? layer - 1 : layer == 1 ? 3 : 4);
    const uint64_t slot = layer == 1 ? 4 : 1, padding = bits >> 9 & 1;
    frame.bytes =
        (frame.samples / 8 * kKilobits.at(row).at(bitRate) * 1000 / frame.rateHz / slot + padding) *
        slot;
    const bool isMono = (bits >> 6 & 3) == 3;
    frame.tagAt = 4 + (first ? (isMono ? 17 : 32) : (isMono ? 9 : 17));
    return frame;
}

// Returns the number of frames that a header frame promises, or 0 for a header frame without a
// count. Returns nothing for a frame of sound.
std::optional<uint64_t> PromisedFrames(ByteWindow& file, uint64_t at, const Mp3Frame& frame) {
    if (frame.layer != 3) return std::nullopt;
    const std::string_view bytes = file.At(at, 64);
    if (bytes.size() < 64) return std::nullopt;
    const std::string_view tag = bytes.substr(frame.tagAt);
    if (tag.starts_with("Xing") || tag.starts_with("Info"))
        return (tag[7] & 1) != 0 ? BigEndian(tag.substr(8, 4)) : 0;
    if (bytes.substr(36).starts_with("VBRI")) return BigEndian(bytes.substr(50, 4));
    return std::nullopt;
}

// Returns the size of the ID3v2, ID3v1 or APE tag at `at` in bytes, or 0 if there is none.
uint64_t TagBytes(ByteWindow& file, uint64_t at) {
    const std::string_view bytes = file.At(at, 32);
    if (bytes.starts_with("ID3") && bytes.size() >= 10) {
        uint64_t size = 10;
        for (size_t i = 0; i < 4; ++i)
            size += static_cast<uint64_t>(bytes[6 + i] & 127) << (21 - 7 * i);
        return size + ((bytes[5] & 16) != 0 ? 10 : 0);
    }
    if (bytes.starts_with("TAG")) return 128;
    // An APE tag begins with a header, or with its footer if it has no header.
    if (bytes.starts_with("APETAGEX") && bytes.size() == 32)
        return (bytes[23] & 32) != 0 ? 32 + LittleEndian(bytes.substr(12, 4)) : 32;
    return 0;
}

// Returns the place of the next frame that is directly followed by another one. Returns nothing if
// there is none before `to`.
std::optional<uint64_t> NextFrame(ByteWindow& file, uint64_t at, uint64_t to) {
    for (; at + 4 <= std::min(to, file.Size()); ++at) {
        const std::optional<Mp3Frame> frame = FrameAt(file, at);
        if (!frame) continue;
        const std::optional<Mp3Frame> next = FrameAt(file, at + frame->bytes);
        if (next && next->GoesWith(*frame)) return at;
    }
    return std::nullopt;
}

class Mp3Scan {
public:
    explicit Mp3Scan(ByteWindow& mp3) : file(mp3) {}

    SourceScan Run() {
        const uint64_t start = SkipId3(file, 0);
        std::optional<uint64_t> at = NextFrame(file, start, start + ByteWindow::kMostBytes);
        if (!at) return {};
        while (at && *at < file.Size()) at = Step(*at);
        EndPart(file.Size());
        if (scan.parts.size() == 1 && !promiseExceeded) scan.parts.clear();
        if (!firstHasCount) {
            scan.parts.clear();
            scan.uncountedFrames = samples;
        }
        return std::move(scan);
    }

private:
    // Processes the tag or frame at `at` and returns where to continue. Returns nothing at the end.
    std::optional<uint64_t> Step(uint64_t at) {
        if (const uint64_t tag = TagBytes(file, at)) {
            // An ID3v2 tag after frames of sound begins another file.
            if (file.At(at, 3) == "ID3" && frames > 0) EndPart(at);
            return at + tag;
        }
        const std::optional<Mp3Frame> frame = FrameAt(file, at);
        if (!frame) return Resume(at);
        if (at + frame->bytes > file.Size()) {
            if (!promised || frames < *promised)
                scan.damage.emplace_back("it ends within an MP3 frame");
            return std::nullopt;
        }
        if (const auto count = PromisedFrames(file, at, *frame)) {
            if (frames > 0) EndPart(at);
            if (scan.parts.empty()) firstHasCount = *count > 0;
            if (*count > 0) promised = count;
        } else {
            ++frames;
            samples += frame->samples;
        }
        return at + frame->bytes;
    }

    std::optional<uint64_t> Resume(uint64_t at) {
        const std::optional<uint64_t> next = NextFrame(file, at, file.Size());
        if (next)
            scan.damage.push_back(
                fmt::format("{} bytes in its middle are not MP3 frames", *next - at));
        return next;
    }

    void EndPart(uint64_t to) {
        // Some encoders include the frame with the count in the count.
        if (promised && frames + 1 < *promised && scan.damage.empty())
            scan.damage.push_back(
                fmt::format("it ends early, after {} of {} MP3 frames", frames, *promised));
        promiseExceeded = promiseExceeded || (promised && frames > *promised + 1);
        if (frames > 0) scan.parts.push_back({partFrom, to});
        partFrom = to;
        frames = 0;
        promised.reset();
    }

    ByteWindow& file;
    SourceScan scan;
    uint64_t partFrom = 0;
    uint64_t frames = 0;               // frames of sound in this part
    std::optional<uint64_t> promised;  // the number of frames that this part's header promises
    uint64_t samples = 0;              // samples per channel in all parts
    bool firstHasCount = false;
    // More frames follow than a header promises. They belong to another file without a header.
    bool promiseExceeded = false;
};

}  // namespace

uint64_t SkipId3(ByteWindow& file, uint64_t from) {
    while (file.At(from, 3) == "ID3") {
        const uint64_t bytes = TagBytes(file, from);
        if (bytes == 0) break;
        from += bytes;
    }
    return from;
}

SourceScan ScanOgg(ByteWindow& file) {
    SourceScan scan;
    Link link;
    uint64_t at = 0;
    while (at < file.Size()) {
        const std::optional<Page> page = PageAt(file, at);
        // These bytes belong to no page. The page numbers tell whether pages are missing.
        if (!page) {
            at = Find(file, "OggS", at + 1);
            continue;
        }
        if (page->starts && link.hasAudio) {
            scan.parts.push_back({link.from, at});
            link.Report(&scan);
            link = Link();
            link.from = at;
        }
        if (at + page->bytes > file.Size()) {
            link.isOpen = true;
            break;
        }
        link.Take(*page);
        at += page->bytes;
    }
    link.Report(&scan);
    if (link.isOpen) scan.damage.emplace_back("it ends early, without its last Ogg page");
    if (!scan.parts.empty()) scan.parts.push_back({link.from, file.Size()});
    return scan;
}

SourceScan ScanFlac(ByteWindow& file, uint64_t from) {
    constexpr std::string_view kStart("fLaC\0\0\0\x22", 8);
    SourceScan scan;
    uint64_t part = 0;
    // Skips the metadata blocks, because pictures may contain the bytes of kStart.
    uint64_t at = from + 4;
    for (bool last = false; !last && at + 4 <= file.Size();) {
        const std::string_view head = file.At(at, 4);
        last = (head[0] & 128) != 0;
        at += 4 + BigEndian(head.substr(1));
    }
    while ((at = Find(file, kStart, at)) < file.Size()) {
        scan.parts.push_back({part, at});
        part = at++;
    }
    if (!scan.parts.empty()) scan.parts.push_back({part, file.Size()});
    return scan;
}

SourceScan ScanMp3(ByteWindow& file) {
    return Mp3Scan(file).Run();
}
