#include "render/audio/data_size.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace {

struct Input {
    int fd;
    uint64_t at, size;
};

// `bytes` as a number; the first of them is the lowest, or with bigEndian the highest.
uint64_t Number(std::string_view bytes, bool bigEndian) {
    uint64_t number = 0;
    for (size_t i = 0; i < bytes.size(); ++i)
        number =
            number << 8 | static_cast<unsigned char>(bytes[bigEndian ? i : bytes.size() - 1 - i]);
    return number;
}

// The first bytes at the input's place.
class Head {
public:
    explicit Head(const Input& input)
        : size(std::max<ssize_t>(
              pread(input.fd, bytes.data(), bytes.size(), static_cast<off_t>(input.at)), 0)) {}
    // Empty where the file has ended.
    std::string_view Part(size_t from, size_t count) const {
        return from + count <= static_cast<size_t>(size)
                   ? std::string_view(bytes.data() + from, count)
                   : std::string_view();
    }

private:
    std::array<char, 24> bytes{};
    ssize_t size;
};

// Writers to a pipe put 0, all ones or a size near 2^31 or 2^32 where they know none.
bool IsKnown(uint64_t promised) {
    return promised != 0 && promised < UINT64_MAX &&
           !(promised >= 0x7F000000 && promised <= 0x80000000) &&
           !(promised >= 0xFF000000 && promised <= 0xFFFFFFFF);
}

std::optional<DataSize> Between(const Input& input, uint64_t from, uint64_t promised) {
    if (!IsKnown(promised)) return std::nullopt;
    return DataSize{promised, input.size - std::min(from, input.size)};
}

// RIFF and its like: chunks of a name, a size and so many bytes, padded to an even number.
// `ahead`: bytes of the wanted chunk that lie before its samples.
std::optional<DataSize> OfChunks(Input input, std::string_view name, uint64_t ahead,
                                 bool bigEndian) {
    constexpr int kMostChunks = 1000;  // of a hostile file
    constexpr size_t kChunkHeader = 8;
    uint64_t longSize = 0;  // of RF64: stands ahead, for one that doesn't fit
    input.at += 12;
    for (int i = 0; i < kMostChunks; ++i) {
        const Head head(input);
        const std::string_view sizeBytes = head.Part(4, 4);
        if (sizeBytes.empty()) return std::nullopt;
        const uint64_t size = Number(sizeBytes, bigEndian);
        input.at += kChunkHeader;
        if (head.Part(0, 4) == name)
            return Between(
                input, input.at + ahead,
                size == 0xFFFFFFFF && longSize > 0 ? longSize : size - std::min(ahead, size));
        if (head.Part(0, 4) == "ds64") longSize = Number(head.Part(16, 8), false);
        input.at += size + size % 2;
    }
    return std::nullopt;
}

}  // namespace

std::optional<DataSize> ReadDataSize(int fd, int64_t start) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || start < 0) return std::nullopt;
    const Input input{fd, static_cast<uint64_t>(start), static_cast<uint64_t>(status.st_size)};
    const Head head(input);
    const std::string_view magic = head.Part(0, 4);
    if (magic == "RIFF" || magic == "RF64") return OfChunks(input, "data", 0, false);
    if (magic == "RIFX") return OfChunks(input, "data", 0, true);
    if (magic == "FORM") return OfChunks(input, "SSND", 8, true);
    if (magic == ".snd" && !head.Part(8, 4).empty())
        return Between(input, input.at + Number(head.Part(4, 4), true),
                       Number(head.Part(8, 4), true));
    return std::nullopt;
}
