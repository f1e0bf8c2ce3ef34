#include "tools/effect_host.h"

#include <dlfcn.h>

#include <array>
#include <cstring>

#include "tools/failure.h"
#include "tools/stderr_silencer.h"

namespace {

void Check(int32_t status, const std::string& what) {
    if (status != kStatusOk)
        throw Failure("the library refuses to " + what + " (status " + std::to_string(status) +
                      ")");
}

// A parameter record is a header, an identifier and up to four values.
using ParameterRecord = std::array<std::byte, sizeof(effect_param_t) + 5 * sizeof(int32_t)>;

}  // namespace

EffectLibrary::EffectLibrary(const std::string& path, bool showsLog)
    // dlopen takes a name without a slash for one of the system's libraries.
    : handle(dlopen((path.find('/') == std::string::npos ? "./" + path : path).c_str(),
                    RTLD_NOW | RTLD_LOCAL)),
      showLog(showsLog) {
    if (handle == nullptr) {
        const char* reason = dlerror();
        throw Failure(std::string("cannot load the library: ") + (reason ? reason : path));
    }
    record = static_cast<const audio_effect_library_t*>(
        dlsym(handle, AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR));
    const char* fault = nullptr;
    if (record == nullptr)
        fault = " exports no effect library record";
    else if (record->tag != AUDIO_EFFECT_LIBRARY_TAG)
        fault = " has a library record with a wrong tag";
    else if (record->version >> 16 != EFFECT_LIBRARY_API_VERSION >> 16)
        fault = " is made for another version of the effect interface";
    if (fault == nullptr) return;
    dlclose(handle);
    throw Failure(path + fault);
}

EffectLibrary::~EffectLibrary() {
    dlclose(handle);
}

uint32_t EffectLibrary::EffectCount() const {
    const StderrSilencer silencer(!showLog);
    uint32_t count = 0;
    Check(record->query_num_effects(&count), "count its effects");
    return count;
}

effect_descriptor_t EffectLibrary::Descriptor() const {
    const StderrSilencer silencer(!showLog);
    effect_descriptor_t descriptor{};
    Check(record->query_effect(0, &descriptor), "describe its effect");
    return descriptor;
}

EffectInstance::EffectInstance(const EffectLibrary& effectLibrary, uint32_t rateHz,
                               uint32_t channels)
    : library(effectLibrary) {
    const effect_descriptor_t descriptor = library.Descriptor();
    {
        const StderrSilencer silencer(!library.ShowsLog());
        Check(library.Record().create_effect(&descriptor.uuid, 0, 0, &handle),
              "create an instance");
    }
    buffer_config_t side{};
    side.samplingRate = rateHz;
    side.channels = channels == 1 ? AUDIO_CHANNEL_OUT_MONO : AUDIO_CHANNEL_OUT_STEREO;
    side.format = AUDIO_FORMAT_PCM_16_BIT;
    side.mask = EFFECT_CONFIG_SMP_RATE | EFFECT_CONFIG_CHANNELS | EFFECT_CONFIG_FORMAT |
                EFFECT_CONFIG_ACC_MODE;
    effect_config_t config{side, side};
    config.inputCfg.accessMode = EFFECT_BUFFER_ACCESS_READ;
    config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
    try {
        Command(EFFECT_CMD_INIT, nullptr, 0, "initialise");
        Command(EFFECT_CMD_CONFIGURE, &config, sizeof(config), "take the configuration");
    } catch (...) {
        const StderrSilencer silencer(!library.ShowsLog());
        library.Record().release_effect(handle);
        throw;
    }
}

EffectInstance::~EffectInstance() {
    const StderrSilencer silencer(!library.ShowsLog());
    library.Record().release_effect(handle);
}

void EffectInstance::Command(uint32_t code, void* data, uint32_t size, const char* what) {
    const StderrSilencer silencer(!library.ShowsLog());
    int32_t status = -1;
    uint32_t replySize = sizeof(status);
    Check((*handle)->command(handle, code, size, data, &replySize, &status), what);
    Check(status, what);
}

void EffectInstance::Set(const ParameterWrite& write) {
    ParameterRecord record{};
    const effect_param_t header{0, sizeof(write.id),
                                static_cast<uint32_t>(write.values.size() * sizeof(int32_t))};
    std::memcpy(record.data(), &header, sizeof(header));
    std::memcpy(record.data() + sizeof(header), &write.id, sizeof(write.id));
    std::memcpy(record.data() + sizeof(header) + sizeof(write.id), write.values.data(),
                header.vsize);
    Command(EFFECT_CMD_SET_PARAM, record.data(),
            static_cast<uint32_t>(sizeof(header)) + header.psize + header.vsize, "set a parameter");
}

std::optional<int32_t> EffectInstance::Get(int32_t id) const {
    const StderrSilencer silencer(!library.ShowsLog());
    ParameterRecord request{}, reply{};
    const effect_param_t header{0, sizeof(id), 0};
    constexpr uint32_t kRequestSize = sizeof(effect_param_t) + sizeof(int32_t);
    std::memcpy(request.data(), &header, sizeof(header));
    std::memcpy(request.data() + sizeof(header), &id, sizeof(id));
    uint32_t replySize = kRequestSize + sizeof(int32_t);
    const int32_t result = (*handle)->command(handle, EFFECT_CMD_GET_PARAM, kRequestSize,
                                              request.data(), &replySize, reply.data());
    effect_param_t answer{};
    std::memcpy(&answer, reply.data(), sizeof(answer));
    if (result != kStatusOk || answer.status != kStatusOk || answer.vsize != sizeof(int32_t))
        return std::nullopt;
    int32_t value = 0;
    std::memcpy(&value, reply.data() + kRequestSize, sizeof(value));
    return value;
}

void EffectInstance::Enable() {
    Command(EFFECT_CMD_ENABLE, nullptr, 0, "be enabled");
}

void EffectInstance::Process(int16_t* in, int16_t* out, uint32_t frames) {
    audio_buffer_s inBuffer{frames, in};
    audio_buffer_s outBuffer{frames, out};
    Check((*handle)->process(handle, &inBuffer, &outBuffer), "process");
}
