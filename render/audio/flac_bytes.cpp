#include "render/audio/flac_bytes.h"

#include <cstdio>

#include "render/failure.h"

sf_count_t FlacBytes::Length(void* memory) {
    return static_cast<sf_count_t>(static_cast<Memory*>(memory)->bytes.size());
}

sf_count_t FlacBytes::Seek(sf_count_t offset, int whence, void* memory) {
    Memory& target = *static_cast<Memory*>(memory);
    const size_t from = whence == SEEK_SET   ? 0
                        : whence == SEEK_CUR ? target.at
                                             : target.bytes.size();
    target.at = from + static_cast<size_t>(offset);
    return Tell(memory);
}

sf_count_t FlacBytes::WriteBytes(const void* from, sf_count_t size, void* memory) {
    Memory& target = *static_cast<Memory*>(memory);
    const auto count = static_cast<size_t>(size);
    if (target.bytes.size() < target.at + count) target.bytes.resize(target.at + count);
    target.bytes.replace(target.at, count, static_cast<const char*>(from), count);
    target.at += count;
    return size;
}

sf_count_t FlacBytes::Tell(void* memory) {
    return static_cast<sf_count_t>(static_cast<Memory*>(memory)->at);
}

FlacBytes::FlacBytes(uint32_t rateHz, uint32_t channels) {
    SF_INFO info{};
    info.samplerate = static_cast<int>(rateHz);
    info.channels = static_cast<int>(channels);
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SF_VIRTUAL_IO through{Length, Seek, nullptr, WriteBytes, Tell};
    file.reset(sf_open_virtual(&through, SFM_WRITE, &info, &target));
    if (file == nullptr) throw Failure("no FLAC can be made: {}", sf_strerror(nullptr));
}

void FlacBytes::Write(std::span<const int16_t> samples) {
    const auto count = static_cast<sf_count_t>(samples.size());
    if (sf_write_short(file.get(), samples.data(), count) != count)
        throw Failure("no FLAC can be made: {}", sf_strerror(file.get()));
}

const std::string& FlacBytes::Finish() {
    file.reset();
    return target.bytes;
}
