#include "render/audio/marks.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

#include "render/audio/bytes.h"

namespace {

// Converts frame numbers of the source to frame numbers of the output.
struct FrameMove {
    uint32_t fromHz, toHz;
    uint64_t delayFrames;  // counted at toHz

    // Returns how many output frames `frames` source frames become, rounded to the nearest.
    uint64_t Length(uint64_t frames) const {
        return frames / fromHz * toHz + (frames % fromHz * toHz + fromHz / 2) / fromHz;
    }
    uint64_t Place(uint64_t frame) const { return Length(frame) + delayFrames; }
    bool MovesNothing() const { return fromHz == toHz && delayFrames == 0; }
};

// Calls change(at) for each of `count` records of `size` bytes that lie in a row from `at` on.
// Stops where the bytes end.
template <typename Change>
void ForRecords(const std::string& bytes, size_t at, size_t size, uint32_t count, Change change) {
    for (uint32_t i = 0; i < count && at + size <= bytes.size(); ++i, at += size) change(at);
}

// Calls forPart(name, at, size) for each part of a list of labels. `at` and `size` describe its
// content.
template <typename ForPart>
void ForLabels(const std::string& list, ForPart forPart) {
    for (size_t at = 0; at + kChunkHeader <= list.size();) {
        const size_t size = Get<uint32_t>(list, at + 4), from = at + kChunkHeader;
        if (size > list.size() - from) return;
        forPart(list.substr(at, 4), from, size);
        at = from + size + size % 2;
    }
}

// Calls forCue(at) for each cue point. A cue point has 24 bytes: identifier, frame, "data", two
// byte offsets, frame.
template <typename ForCue>
void ForCues(const std::string& bytes, ForCue forCue) {
    ForRecords(bytes, 4, 24, Get<uint32_t>(bytes, 0), forCue);
}

// A FLAC cue sheet is a header of 396 bytes and then tracks of 36 bytes, each followed by index
// points of 12 bytes. A track begins with its frame number, an index point with its distance from
// that frame. The track's or index point's own number follows.
constexpr Order kSheetOrder = Order::kHighFirst;
constexpr size_t kLeadInAt = 128, kFlagsAt = 136, kSheetHeader = 396, kTrack = 36, kIndex = 12;
constexpr size_t kNumberAt = 8, kCodeAt = 9;
constexpr uint8_t kLeadOut = 255, kLeadOutOfDisc = 170;

// Calls forTrack(at) for each track and forIndex(at, track) for each of its index points. `track`
// is the track's frame number.
template <typename ForTrack, typename ForIndex>
void ForTracks(const std::string& sheet, ForTrack forTrack, ForIndex forIndex) {
    for (size_t at = kSheetHeader; at + kTrack <= sheet.size();) {
        const auto frame = Get<uint64_t>(sheet, at, kSheetOrder);
        const size_t indices = Get<uint8_t>(sheet, at + kTrack - 1);
        forTrack(at);
        at += kTrack;
        for (size_t i = 0; i < indices; ++i, at += kIndex) forIndex(at, frame);
    }
}

void MoveSheet(const FrameMove& move, std::string* sheet) {
    if (sheet->size() < kSheetHeader || move.MovesNothing()) return;
    // The cue sheet no longer describes a CD, whose frame numbers are multiples of a sector.
    Put<uint64_t>(sheet, kLeadInAt, 0);
    Put<uint8_t>(sheet, kFlagsAt, 0);
    ForTracks(
        *sheet,
        [&](size_t at) {
            Put<uint64_t>(sheet, at, move.Place(Get<uint64_t>(*sheet, at, kSheetOrder)),
                          kSheetOrder);
            if (Get<uint8_t>(*sheet, at + kNumberAt) == kLeadOutOfDisc)
                Put<uint8_t>(sheet, at + kNumberAt, kLeadOut);
        },
        [&](size_t at, uint64_t track) {
            const uint64_t frame = track + Get<uint64_t>(*sheet, at, kSheetOrder);
            Put<uint64_t>(sheet, at, move.Length(frame) - move.Length(track), kSheetOrder);
        });
}

void MovePlace(const FrameMove& move, std::string* bytes, size_t at) {
    Put<uint32_t>(bytes, at, move.Place(Get<uint32_t>(*bytes, at)));
}
void MoveLength(const FrameMove& move, std::string* bytes, size_t at) {
    Put<uint32_t>(bytes, at, move.Length(Get<uint32_t>(*bytes, at)));
}

void MoveLoops(const FrameMove& move, std::string* bytes) {
    const bool otherRate = move.fromHz != move.toHz;
    constexpr uint32_t kSecondNs = 1000000000;
    if (otherRate) Put<uint32_t>(bytes, 8, (kSecondNs + move.toHz / 2) / move.toHz);
    ForRecords(*bytes, 36, 24, Get<uint32_t>(*bytes, 28), [&](size_t at) {
        MovePlace(move, bytes, at + 8);
        // The end frame belongs to the loop. So the frame after it is moved, and 1 is subtracted.
        const uint64_t behind = uint64_t{Get<uint32_t>(*bytes, at + 12)} + 1;
        Put<uint32_t>(bytes, at + 12, move.Place(behind) - 1);
        if (otherRate) Put<uint32_t>(bytes, at + 16, 0);  // the fraction of a frame
    });
}

// Changes the broadcast extension: the time at which the recording begins, and from version 2 on
// its loudness values.
void MoveBroadcast(const FrameMove& move, std::string* bytes) {
    constexpr size_t kTimeAt = 338, kVersionAt = 346, kLoudnessAt = 412, kLoudnessValues = 5;
    constexpr uint16_t kNotKnown = 0x7FFF;
    const uint64_t time = move.Length(Get<uint64_t>(*bytes, kTimeAt));
    Put<uint64_t>(bytes, kTimeAt, time - std::min(time, move.delayFrames));
    if (Get<uint16_t>(*bytes, kVersionAt) < 2) return;
    for (size_t i = 0; i < kLoudnessValues; ++i)
        Put<uint16_t>(bytes, kLoudnessAt + 2 * i, kNotKnown);
}

void MoveChunk(const FrameMove& move, Marks::Chunk* chunk) {
    std::string& bytes = chunk->bytes;
    if (chunk->name == "cue ")
        ForCues(bytes, [&](size_t at) {
            MovePlace(move, &bytes, at + 4);
            MovePlace(move, &bytes, at + 20);
            // This is a byte offset into compressed samples. The output's samples are not
            // compressed.
            if (bytes.compare(at + 8, 4, "data") == 0) Put<uint64_t>(&bytes, at + 12, 0);
        });
    else if (chunk->name == "plst")
        ForRecords(bytes, 4, 12, Get<uint32_t>(bytes, 0),
                   [&](size_t at) { MoveLength(move, &bytes, at + 4); });
    else if (chunk->name == "adtl")
        ForLabels(bytes, [&](const std::string& name, size_t at, size_t size) {
            if (name == "ltxt" && size >= 8) MoveLength(move, &bytes, at + 4);
        });
    else if (chunk->name == "smpl")
        MoveLoops(move, &bytes);
    else if (chunk->name == "bext")
        MoveBroadcast(move, &bytes);
}

}  // namespace

void Marks::Move(uint32_t toHz, uint64_t delayFrames) {
    if (rateHz == 0) return;
    const FrameMove move{rateHz, toHz, delayFrames};
    rateHz = toHz;
    for (Chunk& chunk : chunks) MoveChunk(move, &chunk);
    MoveSheet(move, &cueSheet);
}

std::vector<Mark> Marks::Points() const {
    std::map<uint32_t, std::string> labels;
    for (const Chunk& chunk : chunks)
        if (chunk.name == "adtl")
            ForLabels(chunk.bytes, [&](const std::string& name, size_t at, size_t size) {
                if (name != "labl" || size <= 4) return;
                const std::string text = chunk.bytes.substr(at + 4, size - 4);
                labels[Get<uint32_t>(chunk.bytes, at)] = text.substr(0, text.find('\0'));
            });
    std::vector<Mark> points;
    for (const Chunk& chunk : chunks)
        if (chunk.name == "cue ")
            ForCues(chunk.bytes, [&](size_t at) {
                points.push_back(
                    {Get<uint32_t>(chunk.bytes, at + 20), labels[Get<uint32_t>(chunk.bytes, at)]});
            });
    if (points.empty())
        ForTracks(
            cueSheet,
            [&](size_t at) {
                const auto number = Get<uint8_t>(cueSheet, at + kNumberAt);
                if (number != kLeadOut && number != kLeadOutOfDisc)
                    points.push_back({Get<uint64_t>(cueSheet, at, kSheetOrder),
                                      fmt::format("Track {}", number)});
            },
            [&](size_t at, uint64_t track) {  // index point 1 is where the track's sound begins
                if (Get<uint8_t>(cueSheet, at + kNumberAt) == 1 && !points.empty())
                    points.back().frame = track + Get<uint64_t>(cueSheet, at, kSheetOrder);
            });
    std::stable_sort(points.begin(), points.end(),
                     [](const Mark& a, const Mark& b) { return a.frame < b.frame; });
    return points;
}

std::vector<std::string> Marks::BesidePoints() const {
    std::vector<std::string> names;
    for (const Chunk& chunk : chunks) {
        bool isTold = chunk.name == "cue " || chunk.name == "adtl";
        if (chunk.name == "adtl")
            ForLabels(chunk.bytes, [&](const std::string& name, size_t /*at*/, size_t /*size*/) {
                isTold = isTold && name == "labl";
            });
        if (!isTold) names.push_back(chunk.name + " chunk");
    }
    bool hasCodes = Get<uint8_t>(cueSheet, 0) != 0;
    ForTracks(
        cueSheet,
        [&](size_t at) { hasCodes = hasCodes || Get<uint8_t>(cueSheet, at + kCodeAt) != 0; },
        [](size_t /*at*/, uint64_t /*track*/) {});
    if (hasCodes) names.emplace_back("catalogue numbers of the cue sheet");
    return names;
}

std::vector<std::string> Marks::Names() const {
    std::vector<std::string> names;
    for (const Chunk& chunk : chunks)
        names.push_back(chunk.name.substr(0, chunk.name.find(' ')) + " chunk");
    if (!cueSheet.empty()) names.emplace_back("cue sheet");
    return names;
}

uint64_t Marks::Bytes() const {
    uint64_t bytes = cueSheet.size();
    for (const Chunk& chunk : chunks) bytes += 2 * kChunkHeader + chunk.bytes.size();
    return bytes;
}

bool IsCueSheet(const std::string& block) {
    size_t tracks = 0, end = kSheetHeader;
    ForTracks(
        block,
        [&](size_t at) {
            ++tracks;
            end = at + kTrack;
        },
        [&](size_t at, uint64_t /*track*/) { end = at + kIndex; });
    return block.size() == end && tracks == Get<uint8_t>(block, kSheetHeader - 1);
}

std::vector<Marks::Chunk> ChunksOf(const std::vector<Mark>& points) {
    Marks::Chunk cue{"cue ", std::string(4, '\0')}, labels{"adtl", ""};
    Put<uint32_t>(&cue.bytes, 0, points.size());
    for (const Mark& point : points) {
        const size_t at = cue.bytes.size(), number = at / 24 + 1;
        cue.bytes.append(24, '\0').replace(at + 8, 4, "data");
        Put<uint32_t>(&cue.bytes, at, number);
        Put<uint32_t>(&cue.bytes, at + 4, point.frame);
        Put<uint32_t>(&cue.bytes, at + 20, point.frame);
        std::string label = std::string("labl").append(8, '\0') + point.name + '\0';
        Put<uint32_t>(&label, 4, label.size() - kChunkHeader);
        Put<uint32_t>(&label, kChunkHeader, number);
        labels.bytes += label.append(label.size() % 2, '\0');
    }
    return {cue, labels};
}
