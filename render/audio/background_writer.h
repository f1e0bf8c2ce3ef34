// An AudioWriter that encodes and writes on a separate thread. All its functions are called from
// one thread, the one that produces the samples.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "render/audio/audio_writer.h"
#include "render/background.h"

class BackgroundWriter final : public AudioWriter {
public:
    // Samples are written in blocks of at least `samplesPerBlock`. Large blocks wake the thread and
    // call the system less often. With 1, every Write is passed on at once, as a pipe needs it.
    explicit BackgroundWriter(std::unique_ptr<AudioWriter> audioWriter,
                              size_t samplesPerBlock = 65536)
        : writer(std::move(audioWriter)),
          blockSamples(samplesPerBlock),
          background(kMostBlocks, [this](const auto& samples) { writer->Write(samples); }) {}

    // Copies the samples and waits if 8 blocks are pending. A failure of an earlier block is thrown
    // by the next Write, Close or Commit.
    void Write(std::span<const int16_t> samples) override {
        gathered.reserve(blockSamples + samples.size());
        gathered.insert(gathered.end(), samples.begin(), samples.end());
        if (gathered.size() >= blockSamples) HandOver();
    }
    void Close() override {
        Finish();
        writer->Close();
    }
    std::string ClosedPath() const override { return writer->ClosedPath(); }
    void Commit() override {
        Finish();
        writer->Commit();
    }
    std::vector<std::string> NotKept() const override { return writer->NotKept(); }

private:
    static constexpr size_t kMostBlocks = 8;

    void HandOver() {
        gathered = background.Put(std::move(gathered));
        gathered.clear();
    }
    void Finish() {
        if (!gathered.empty()) HandOver();
        background.Finish();
    }

    std::unique_ptr<AudioWriter> writer;
    size_t blockSamples;
    std::vector<int16_t> gathered;  // samples that the thread has not received yet
    Background<std::vector<int16_t>> background;
};
