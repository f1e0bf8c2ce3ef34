#include "render/audio/source_scan.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

namespace {

constexpr int kMostChunks = 1000;  // limits the time that a hostile file takes
constexpr uint64_t kAllOnes32 = 0xFFFFFFFF;

// How a family of formats lays out its chunks: a name, a size, and the content.
struct ChunkKind {
    const char* dataName;
    uint64_t firstChunk;  // byte offset of the first chunk
    size_t nameBytes;     // length of the name; only its first four bytes are compared
    size_t sizeBytes;
    bool bigEndian;
    uint64_t sizeCountsFrom;  // header bytes that the size includes
    uint64_t alignment;
    uint64_t ahead;  // bytes in the data chunk before its samples
};
constexpr ChunkKind kRiff{"data", 12, 4, 4, false, 0, 2, 0};
constexpr ChunkKind kRifx{"data", 12, 4, 4, true, 0, 2, 0};
constexpr ChunkKind kAiff{"SSND", 12, 4, 4, true, 0, 2, 8};
constexpr ChunkKind kCaf{"data", 8, 4, 8, true, 0, 1, 4};
constexpr ChunkKind kWave64{"data", 40, 16, 8, false, 24, 8, 0};

struct Chunk {
    std::string name;
    uint64_t sizeAt, content, size, next;
};

std::optional<Chunk> ChunkAt(ByteWindow& file, const ChunkKind& kind, uint64_t at) {
    const std::string_view head = file.At(at, kind.nameBytes + kind.sizeBytes);
    if (head.size() < kind.nameBytes + kind.sizeBytes) return std::nullopt;
    const std::string_view sizeBytes = head.substr(kind.nameBytes);
    const uint64_t told = kind.bigEndian ? BigEndian(sizeBytes) : LittleEndian(sizeBytes);
    Chunk chunk{std::string(head.substr(0, 4)), at + kind.nameBytes, at + head.size(),
                told - std::min(told, kind.sizeCountsFrom), 0};
    const uint64_t padding = (kind.alignment - chunk.size % kind.alignment) % kind.alignment;
    // A size of 2^63 or more, which may be a negative number, points beyond the end of the file.
    chunk.next = chunk.size > INT64_MAX ? UINT64_MAX / 2 : chunk.content + chunk.size + padding;
    return chunk;
}

std::string EndsEarly(uint64_t present, uint64_t promised) {
    return fmt::format("it ends early, after {} of {} bytes of audio", present, promised);
}

std::string SizeAsBytes(const ChunkKind& kind, uint64_t size) {
    std::string bytes;
    for (size_t i = 0; i < kind.sizeBytes; ++i) {
        bytes += static_cast<char>(size);
        size >>= 8;
    }
    if (kind.bigEndian) std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

bool AreZero(ByteWindow& file, uint64_t from) {
    while (true) {
        const std::string_view bytes = file.At(from, ByteWindow::kMostBytes);
        if (bytes.empty()) return true;
        if (bytes.find_first_not_of('\0') != std::string_view::npos) return false;
        from += bytes.size();
    }
}

bool IsTag(std::string_view bytes, uint64_t left) {
    return (bytes.starts_with("TAG") && left == 128) || bytes.starts_with("APETAGEX") ||
           bytes.starts_with("ID3");
}

// Inspects what follows the samples of a WAV file: more chunks, padding, another file, or samples
// that its header does not count.
class WavTail {
public:
    WavTail(ByteWindow& wav, const ChunkKind& chunkKind, const Chunk& dataChunk)
        : file(wav), kind(chunkKind), data(dataChunk) {}

    void Scan(SourceScan* scan) {
        uint64_t at = data.next;
        for (int i = 0; i < kMostChunks && at + 8 <= file.Size(); ++i) {
            const uint64_t left = file.Size() - at;
            const std::string head(file.At(at, 8));
            if (IsTag(head, left)) return;
            // Some writers omit the padding byte after an odd size.
            if (StartsFile(at) || StartsFile(at - data.size % 2)) {
                scan->damage.emplace_back("another WAV file follows in it, which is not read");
                scan->end = StartsFile(at) ? at : at - data.size % 2;
                return;
            }
            if (at == data.next && data.size % 2 == 1 && !IsNamed(at) && IsNamed(at - 1)) --at;
            const Chunk chunk = *ChunkAt(file, kind, at);
            if (!IsNamed(at)) {
                if (!AreZero(file, at)) ReadToTheEnd(scan);
                return;
            }
            if (chunk.name == kind.dataName)
                scan->damage.push_back(
                    fmt::format("its second data chunk of {} bytes is not read", chunk.size));
            else if (chunk.content + chunk.size > file.Size())
                scan->damage.push_back(fmt::format("it ends within its chunk {}", chunk.name));
            at = chunk.next;
        }
    }

    void ReadToTheEnd(SourceScan* scan) {
        const uint64_t present = file.Size() - data.content;
        scan->damage.push_back(
            fmt::format("its header promises {} bytes of audio, but it holds {}; all were read",
                        data.size, present));
        scan->patch = {data.sizeAt, SizeAsBytes(kind, std::min(present, kAllOnes32 - 1))};
    }

private:
    bool IsNamed(uint64_t at) {
        const std::string_view name = file.At(at, 4);
        return std::all_of(name.begin(), name.end(), [](char c) {
            return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == ' ' || c == '_';
        });
    }
    bool StartsFile(uint64_t at) {
        const std::string_view head = file.At(at, 12);
        return head.size() == 12 &&
               (head.starts_with("RIFF") || head.starts_with("RIFX") || head.starts_with("RF64")) &&
               head.ends_with("WAVE");
    }

    ByteWindow& file;
    const ChunkKind& kind;
    const Chunk& data;
};

SourceScan ScanChunks(ByteWindow& file, const ChunkKind& kind) {
    SourceScan scan;
    const bool isWav = &kind == &kRiff || &kind == &kRifx;
    uint64_t longSize = 0;  // size of the samples of an RF64 file, from its ds64 chunk
    uint64_t at = kind.firstChunk;
    for (int i = 0; i < kMostChunks; ++i) {
        std::optional<Chunk> chunk = ChunkAt(file, kind, at);
        if (!chunk) return scan;
        at = chunk->next;
        if (chunk->name == "ds64") longSize = LittleEndian(file.At(chunk->content + 8, 8));
        if (chunk->name != kind.dataName) continue;
        const bool isLong = chunk->size == kAllOnes32 && longSize > 0;
        if (isLong) chunk->size = longSize;
        const uint64_t samples = chunk->content + kind.ahead;
        const uint64_t present = file.Size() - std::min(samples, file.Size());
        const uint64_t promised = chunk->size - std::min(kind.ahead, chunk->size);
        WavTail tail(file, kind, *chunk);
        if (isWav && promised == 0 && present > 0) {
            // The data chunk may really be empty, followed by other chunks.
            SourceScan rest;
            tail.Scan(&rest);
            if (rest.damage.empty() && !AreZero(file, samples)) return scan;
            tail.ReadToTheEnd(&scan);
        } else if (promised != 0 && !IsOpenLength(promised) && present < promised) {
            scan.damage.push_back(EndsEarly(present, promised));
            // libsndfile refuses a CAF file whose size is wrong.
            if (&kind == &kCaf)
                scan.patch = {chunk->sizeAt, SizeAsBytes(kind, present + kind.ahead)};
        } else if (isWav && promised != 0 && !isLong && !IsOpenLength(promised)) {
            tail.Scan(&scan);
        }
        return scan;
    }
    return scan;
}

SourceScan ScanAu(ByteWindow& file) {
    SourceScan scan;
    const std::string_view head = file.At(0, 12);
    if (head.size() < 12) return scan;
    const uint64_t promised = BigEndian(head.substr(8, 4));
    const uint64_t present = file.Size() - std::min(BigEndian(head.substr(4, 4)), file.Size());
    if (promised != 0 && !IsOpenLength(promised) && present < promised)
        scan.damage.push_back(EndsEarly(present, promised));
    return scan;
}

}  // namespace

bool IsOpenLength(uint64_t length) {
    return length > INT64_MAX || (length >= 0x7F000000 && length <= 0x80001000) ||
           (length >= 0xFF000000 && length <= kAllOnes32);
}

SourceScan ScanSource(int fd, uint64_t start) {
    ByteWindow file(fd, start);
    const std::string magic(file.At(0, 4));
    if (magic == "RIFF" || magic == "RF64") return ScanChunks(file, kRiff);
    if (magic == "RIFX") return ScanChunks(file, kRifx);
    if (magic == "FORM") return ScanChunks(file, kAiff);
    if (magic == "caff") return ScanChunks(file, kCaf);
    if (magic == "riff") return ScanChunks(file, kWave64);
    if (magic == ".snd") return ScanAu(file);
    if (magic == "OggS") return ScanOgg(file);
    const uint64_t from = SkipId3(file, 0);
    if (file.At(from, 4) == "fLaC") return ScanFlac(file, from);
    return ScanMp3(file);
}
