#include "render/aligned_stream.h"

#include "render/stderr_silencer.h"

AlignedStream::AlignedStream(const EffectLibrary& effectLibrary, const Settings& settings,
                             const StreamFormat& format, const Alignment& alignment)
    : library(effectLibrary) {
    const StderrSilencer silencer(!library.ShowsLog());
    stream = std::make_unique<PieceStream>(library.Record(), settings, format, alignment);
    if (const char* const refused = stream->Refused()) {
        const int32_t status = stream->Status();
        stream.reset();  // while the log is silent
        Check(status, refused);
    }
}

AlignedStream::~AlignedStream() {
    const StderrSilencer silencer(!library.ShowsLog());
    stream.reset();
}

void AlignedStream::Process(std::span<const int16_t> in, std::vector<int16_t>* out) {
    stream->Process(in, out);
    CheckNothingRefused();
}

void AlignedStream::Finish(std::vector<int16_t>* out) {
    stream->Finish(out);
    CheckNothingRefused();
}

void AlignedStream::CheckNothingRefused() const {
    if (stream->Refused() != nullptr) Check(stream->Status(), stream->Refused());
}

std::function<std::vector<int16_t>(const std::vector<int16_t>&)> AlignedPlayer(
    const EffectLibrary& library, const Settings& settings, const StreamFormat& format,
    bool startsCold) {
    return [&library, settings, format, startsCold](const std::vector<int16_t>& in) {
        AlignedStream stream(library, settings, format, {.startsCold = startsCold});
        std::vector<int16_t> out;
        out.reserve(in.size());
        stream.Process(in, &out);
        stream.Finish(&out);
        return out;
    };
}
