// An AudioWriter that encodes and writes on a separate thread. All its functions are called from
// one thread, the one that produces the samples.
#pragma once
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
    explicit BackgroundWriter(std::unique_ptr<AudioWriter> audioWriter)
        : writer(std::move(audioWriter)),
          background(kMostBlocks, [this](const auto& samples) { writer->Write(samples); }) {}

    // Copies the samples and waits if 64 blocks are pending. A failure of an earlier Write is
    // thrown by the next Write, Close or Commit.
    void Write(std::span<const int16_t> samples) override {
        background.Put({samples.begin(), samples.end()});
    }
    void Close() override {
        background.Finish();
        writer->Close();
    }
    std::string ClosedPath() const override { return writer->ClosedPath(); }
    void Commit() override {
        background.Finish();
        writer->Commit();
    }
    std::vector<std::string> NotKept() const override { return writer->NotKept(); }

private:
    static constexpr size_t kMostBlocks = 64;

    std::unique_ptr<AudioWriter> writer;
    Background<std::vector<int16_t>> background;
};
