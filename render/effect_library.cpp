#include "render/effect_library.h"

#include "render/failure.h"
#include "render/stderr_silencer.h"

void Check(int32_t status, const std::string& what) {
    if (status != kStatusOk)
        throw Failure("the library refuses to " + what + " (status " + std::to_string(status) +
                      ")");
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
