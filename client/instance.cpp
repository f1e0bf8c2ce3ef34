#include "client/instance.h"

namespace {
constexpr int32_t kNoReply = -1;
}

effect_config_t MakeConfig(uint32_t rateHz, uint32_t channels) {
    buffer_config_t side{};
    side.samplingRate = rateHz;
    side.channels = channels == 1 ? AUDIO_CHANNEL_OUT_MONO : AUDIO_CHANNEL_OUT_STEREO;
    side.format = AUDIO_FORMAT_PCM_16_BIT;
    side.mask = EFFECT_CONFIG_SMP_RATE | EFFECT_CONFIG_CHANNELS | EFFECT_CONFIG_FORMAT |
                EFFECT_CONFIG_ACC_MODE;
    effect_config_t config{side, side};
    config.inputCfg.accessMode = EFFECT_BUFFER_ACCESS_READ;
    config.outputCfg.accessMode = EFFECT_BUFFER_ACCESS_WRITE;
    return config;
}

ClientInstance::ClientInstance(const audio_effect_library_t& library, const effect_uuid_s& uuid)
    : record(&library), createStatus(library.create_effect(&uuid, 0, 0, &handle)) {}

int32_t ClientInstance::Release() {
    if (handle == nullptr) return kStatusOk;
    const int32_t status = record->release_effect(handle);
    handle = nullptr;
    return status;
}

int32_t ClientInstance::Command(uint32_t code, uint32_t size, void* data) {
    if (handle == nullptr) return kStatusInvalid;
    int32_t status = kNoReply;
    uint32_t replySize = sizeof status;
    const int32_t result = (*handle)->command(handle, code, size, data, &replySize, &status);
    return result != kStatusOk ? result : status;
}

int32_t ClientInstance::Configure(effect_config_t config) {
    return Command(EFFECT_CMD_CONFIGURE, sizeof config, &config);
}

void ClientInstance::Reset() {
    if (handle != nullptr)
        (*handle)->command(handle, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr);
}

int32_t ClientInstance::Set(ParameterCommand command) {
    return Command(EFFECT_CMD_SET_PARAM, command.bytes, &command);
}

int32_t ClientInstance::Get(int32_t id) {
    if (handle == nullptr) return kStatusInvalid;
    struct Answer {
        effect_param_t header;
        int32_t id, value;
    } answer{{kNoReply, 0, 0}, 0, 0};
    ParameterCommand request = PackGet(id);
    uint32_t replySize = sizeof answer;
    const int32_t result = (*handle)->command(handle, EFFECT_CMD_GET_PARAM, request.bytes, &request,
                                              &replySize, &answer);
    if (result != kStatusOk) return result;
    if (answer.header.status != kStatusOk) return answer.header.status;
    if (replySize != sizeof answer || answer.header.vsize != sizeof answer.value) return kNoReply;
    return answer.value;
}

int32_t ClientInstance::Process(const int16_t* in, int16_t* out, uint32_t frames) {
    if (handle == nullptr) return kStatusInvalid;
    audio_buffer_s input{frames, const_cast<int16_t*>(in)};  // the framework's record has no const
    audio_buffer_s output{frames, out};
    return (*handle)->process(handle, &input, &output);
}
