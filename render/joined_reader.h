// Reads several files as one stream. The samples and blocks are those that one file with the
// content of all of them would give.
//
// Use an object on one thread. If a file is damaged, reading it throws Failure with the file's
// name.
#pragma once
#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "render/audio/audio_reader.h"
#include "render/failure.h"
#include "render/report.h"

struct JoinedFormat {
    uint32_t rateHz, channels;       // the same in all files
    bool sixteenBit;                 // whether all files are
    std::optional<uint64_t> frames;  // the sum over all files; unset if not known
};

class JoinedReader final : public SampleReader {
public:
    // Called when a file has been opened.
    using Begins = std::function<void(const AudioReader& file)>;
    // Called when a file has been read to its end. `frames` counts from the beginning of the first
    // file.
    using Ends = std::function<void(uint64_t frames)>;

    JoinedReader(std::vector<std::string> files, const JoinedFormat& joinedFormat,
                 Begins whenBegins = nullptr, Ends whenEnds = nullptr)
        : paths(std::move(files)),
          format(joinedFormat),
          begins(std::move(whenBegins)),
          ends(std::move(whenEnds)) {}

    uint32_t RateHz() const override { return format.rateHz; }
    uint32_t Channels() const override { return format.channels; }
    std::optional<uint64_t> Frames() const override { return format.frames; }
    bool IsSixteenBit() const override { return format.sixteenBit; }
    // These return nothing, because a file with a fault throws Failure.
    uint64_t NotNumbers() const override { return 0; }
    std::vector<std::string> Damage() const override { return {}; }

    std::span<const float> Read() override {
        return Gather(&floats, &restOfFloats, [](AudioReader& reader) { return reader.Read(); });
    }
    std::span<const int16_t> ReadSixteenBit() override {
        return Gather(&shorts, &restOfShorts,
                      [](AudioReader& reader) { return reader.ReadSixteenBit(); });
    }

private:
    template <typename Sample, typename Next>
    std::span<const Sample> Gather(std::vector<Sample>* block, std::span<const Sample>* rest,
                                   Next next) {
        const size_t wanted = kReadFrames * format.channels;
        block->clear();
        while (block->size() < wanted && (file || Open())) {
            if (rest->empty()) *rest = next(*file);
            if (rest->empty()) Close();
            const size_t count = std::min(rest->size(), wanted - block->size());
            block->insert(block->end(), rest->begin(),
                          rest->begin() + static_cast<ptrdiff_t>(count));
            *rest = rest->subspan(count);
            framesRead += count / format.channels;
        }
        return *block;
    }

    bool Open() {
        if (opened == paths.size()) return false;
        file.emplace(paths[opened++]);
        framesBefore = framesRead;
        if (file->RateHz() != format.rateHz || file->Channels() != format.channels ||
            (format.sixteenBit && !file->IsSixteenBit()))
            throw Failure("{} has changed while the album was being read", paths[opened - 1]);
        if (begins) begins(*file);
        return true;
    }

    void Close() {
        const std::string& path = paths[opened - 1];
        if (framesRead == framesBefore && file->Frames() != 0)
            throw Failure("{} holds no samples that can be read", path);
        std::vector<std::string> damage = file->Damage();
        if (file->NotNumbers() > 0)
            damage.push_back(fmt::format("{} of its samples are no numbers", file->NotNumbers()));
        if (!damage.empty())
            throw Failure("{}; nothing of the album is written", DamageText(path, damage));
        file.reset();
        if (ends) ends(framesRead);
    }

    std::vector<std::string> paths;
    JoinedFormat format;
    Begins begins;
    Ends ends;
    std::optional<AudioReader> file;
    size_t opened = 0;
    uint64_t framesRead = 0, framesBefore = 0;
    std::vector<float> floats;
    std::vector<int16_t> shorts;
    // the part of the file's last block that was not returned yet
    std::span<const float> restOfFloats;
    std::span<const int16_t> restOfShorts;
};
