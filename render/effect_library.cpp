#include "render/effect_library.h"

#include "client/stderr_silencer.h"
#include "render/failure.h"

void Check(int32_t status, const std::string& what) {
    if (status != kStatusOk) throw Failure("the library refuses to {} (status {})", what, status);
}

EffectLibrary::EffectLibrary(const std::string& path, bool showsLog)
    : file(path), showLog(showsLog) {
    if (file.Record() == nullptr) throw Failure(file.Fault());
}

uint32_t EffectLibrary::EffectCount() const {
    const StderrSilencer silencer(!showLog);
    uint32_t count = 0;
    Check(Record().query_num_effects(&count), "count its effects");
    return count;
}

effect_descriptor_t EffectLibrary::Descriptor() const {
    const StderrSilencer silencer(!showLog);
    effect_descriptor_t descriptor{};
    Check(Record().query_effect(0, &descriptor), "describe its effect");
    return descriptor;
}

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
