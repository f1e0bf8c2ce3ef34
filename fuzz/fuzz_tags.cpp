// Fuzz target: reads the tags and marks of a file of unknown bytes, and writes them to a sound file
// as the renderer does.
//
// The first three bytes of an input choose the format of the source, the format of the output, and
// how the marks move. The other bytes are the source. Whatever is in the tags, the output must
// still hold its sound.
//
// Run it with scripts/fuzz.sh.
#include <sys/mman.h>

#include <array>
#include <iterator>
#include <string>
#include <vector>

#include "client/stderr_silencer.h"
#include "fuzz/fuzz_input.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/tag_stream.h"
#include "render/audio/tags.h"
#include "render/failure.h"

namespace {

constexpr int kRateHz = 48000;
constexpr sf_count_t kFrames = 2000;

// The formats that the reader distinguishes. 0 is a format that libsndfile does not know.
constexpr int kSources[] = {0,
                            SF_FORMAT_WAV,
                            SF_FORMAT_AIFF,
                            SF_FORMAT_FLAC,
                            SF_FORMAT_OGG | SF_FORMAT_VORBIS,
                            SF_FORMAT_OGG | SF_FORMAT_OPUS,
                            SF_FORMAT_MPEG};
// The renderer's outputs (render/audio/audio_writer.cpp).
constexpr int kOutputs[] = {
    SF_FORMAT_WAV | SF_FORMAT_PCM_16,  SF_FORMAT_AIFF | SF_FORMAT_PCM_16,
    SF_FORMAT_CAF | SF_FORMAT_PCM_16,  SF_FORMAT_RF64 | SF_FORMAT_PCM_16,
    SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_OGG | SF_FORMAT_VORBIS,
    SF_FORMAT_OGG | SF_FORMAT_OPUS,    SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III};

bool TakesStrings(int format) {
    return (format & SF_FORMAT_SUBMASK) == SF_FORMAT_PCM_16 &&
           (format & SF_FORMAT_TYPEMASK) != SF_FORMAT_FLAC;
}

// Returns the bytes of a silent file of a format, with those tags that libsndfile writes.
std::string SoundFile(int format, const AudioTags& tags) {
    const MemoryFile file("");
    SF_INFO info{.frames = 0, .samplerate = kRateHz, .channels = 1, .format = format};
    SndfileHandle sound(sf_open(file.Path().c_str(), SFM_WRITE, &info));
    Demand(sound != nullptr, "a file to write to");
    WriteStrings(sound.get(), tags);
    const std::vector<float> silence(kFrames);
    Demand(sf_writef_float(sound.get(), silence.data(), kFrames) == kFrames, "sound");
    sound.reset();
    return file.Content();
}

// Encoding takes most of the time, so compressed files are made once.
const std::string& SilentFile(size_t output) {
    static std::array<std::string, std::size(kOutputs)> files;
    if (files[output].empty()) files[output] = SoundFile(kOutputs[output], {});
    return files[output];
}

void WriteAllTags(size_t output, AudioTags tags) {
    const int format = kOutputs[output];
    const MemoryFile file(TakesStrings(format) ? SoundFile(format, tags) : SilentFile(output));
    {
        TagStream stream(file.Descriptor());
        WriteMarks(&stream, format, {kRateHz, kFrames}, &tags);
        Demand(stream.Error() == 0, "marks are written");
    }
    if (!tags.Names().empty()) WriteTags(file.Descriptor(), format, tags, "output");
    SF_INFO info{};
    SndfileHandle back;
    {
        const StderrSilencer silencer;  // as AudioWriter does
        back.reset(sf_open(file.Path().c_str(), SFM_READ, &info));
    }
    Demand(back != nullptr && info.frames == kFrames, "the sound is still there");
    ReadTags(back.get(), file.Descriptor(), format);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzInput input(data, size);
    const int format = kSources[input.Take<uint8_t>() % std::size(kSources)];
    const size_t output = input.Take<uint8_t>() % std::size(kOutputs);
    const unsigned move = input.Take<uint8_t>();
    const MemoryFile source(input.Rest());
    AudioTags tags = ReadTags(nullptr, source.Descriptor(), format);
    tags.Title();
    tags.marks.rateHz = (move & 1U) != 0 ? kRateHz : 44100;
    tags.marks.Move(kRateHz, move / 2);
    WriteAllTags(output, tags);
    return 0;
}
