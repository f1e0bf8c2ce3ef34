#include "host/effect.h"

#include <cstring>

#include "dsp/samples.h"
#include "host/reply.h"
#include "platform/log.h"

namespace {

// Returns the number of channels, or 0 if the mask isn't supported.
uint32_t ChannelCount(uint32_t mask) {
    switch (mask) {
        case AUDIO_CHANNEL_OUT_MONO:
            return 1;
        case AUDIO_CHANNEL_OUT_STEREO:
            return 2;
        default:
            return 0;
    }
}

bool Names(const buffer_config_t& side, uint16_t field) {
    return (side.mask & field) != 0;
}

}  // namespace

int32_t Effect::configure(const void* pConfig, DeferredLog* log) {
    effect_config_t config;
    std::memcpy(&config, pConfig, sizeof config);
    const buffer_config_t& in = config.inputCfg;
    const buffer_config_t& out = config.outputCfg;

    configured = false;
    log->LogInfo("Quenthra enter configure");
    if (Names(in, EFFECT_CONFIG_SMP_RATE) && Names(out, EFFECT_CONFIG_SMP_RATE)) {
        log->LogInfo("Configuring samplerate, in = %d, out = %d", static_cast<int>(in.samplingRate),
                     static_cast<int>(out.samplingRate));
        if (in.samplingRate != out.samplingRate) {
            log->LogInfo("Quenthra disabled, reason [in.samplingRate = %d, out.samplingRate = %d]",
                         static_cast<int>(in.samplingRate), static_cast<int>(out.samplingRate));
            return kStatusInvalid;
        }
        if (in.samplingRate < kLowestRateHz || in.samplingRate > kHighestRateHz) {
            log->LogInfo("Quenthra disabled, reason [in.samplingRate != [32000, 44100, 48000]");
            return kStatusInvalid;
        }
        samplingRate = in.samplingRate;
    }
    if (Names(in, EFFECT_CONFIG_CHANNELS) && Names(out, EFFECT_CONFIG_CHANNELS)) {
        log->LogInfo("Configuring channels, in = %d, out = %d", static_cast<int>(in.channels),
                     static_cast<int>(out.channels));
        const uint32_t ins = ChannelCount(in.channels);
        const uint32_t outs = ChannelCount(out.channels);
        log->LogInfo("Configuring channels, in = %d, out = %d", static_cast<int>(ins),
                     static_cast<int>(outs));
        if (ins == 0 || outs == 0 || ins != outs) {
            log->LogInfo("Quenthra disabled, reason [nIns = %d, nOuts = %d]", static_cast<int>(ins),
                         static_cast<int>(outs));
            return kStatusInvalid;
        }
        channels = ins;
    }
    const auto refuses = [log](const buffer_config_t& side, const char* configuring,
                               const char* reason) {
        if (!Names(side, EFFECT_CONFIG_FORMAT)) return false;
        log->LogInfo(configuring, side.format);
        if (side.format == AUDIO_FORMAT_PCM_16_BIT) return false;
        log->LogInfo(reason, side.format);
        return true;
    };
    if (refuses(in, "Configuring input sample format, in = %d",
                "Quenthra disabled, reason [in.format = %d]") ||
        refuses(out, "Configuring output sample format, out = %d",
                "Quenthra disabled, reason [out.format = %d]"))
        return kStatusInvalid;
    if (Names(in, EFFECT_CONFIG_ACC_MODE))
        log->LogInfo("Configuring input buffer access mode, in = %d", in.accessMode);
    if (Names(out, EFFECT_CONFIG_ACC_MODE))
        log->LogInfo("Configuring output buffer access mode, out = %d", out.accessMode);
    log->LogInfo("Quenthra configuring successful");
    configured = true;
    return kStatusOk;
}

int32_t Effect::command(uint32_t cmdCode, uint32_t cmdSize, void* /*pCmdData*/, uint32_t* replySize,
                        void* pReplyData) {
    LogInfo("Effect command, code = %d, size = %d", static_cast<int>(cmdCode),
            static_cast<int>(cmdSize));
    Reply reply(replySize, pReplyData);
    switch (cmdCode) {
        case EFFECT_CMD_ENABLE:
            enabled.store(true, std::memory_order_relaxed);
            reply.WriteStatus(kStatusOk);
            break;
        case EFFECT_CMD_DISABLE:
            enabled.store(false, std::memory_order_relaxed);
            reply.WriteStatus(kStatusOk);
            break;
        case EFFECT_CMD_INIT:
        case EFFECT_CMD_CONFIGURE:
        case EFFECT_CMD_SET_PARAM:
        case EFFECT_CMD_SET_PARAM_COMMIT:
            reply.WriteStatus(kStatusOk);
            break;
        case EFFECT_CMD_GET_PARAM:
            reply.WriteNoParameter();
            break;
        default:
            break;
    }
    return kStatusOk;
}
