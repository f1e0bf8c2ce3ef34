#include "unit/process_unit_orvane.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "host/reply.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "unit/parameters.h"

namespace {

constexpr uint32_t kWaveBufferFrames = 2048;
constexpr int64_t kActiveMs = 1000;
constexpr int kBands = 10;

class LockGuard {
public:
    explicit LockGuard(pthread_mutex_t& lockedMutex) : mutex(lockedMutex) {
        pthread_mutex_lock(&mutex);
    }
    ~LockGuard() { pthread_mutex_unlock(&mutex); }
    LockGuard(const LockGuard&) = delete;
    LockGuard& operator=(const LockGuard&) = delete;

private:
    pthread_mutex_t& mutex;
};

// A parameter record: the header, the identifier, up to four values.
struct ParameterRecord {
    effect_param_t header;
    int32_t identifier;
    int32_t values[4];
};
constexpr uint32_t kRecordBytes = offsetof(ParameterRecord, values);  // without values

// Copies what the caller's block holds of a record, once: the caller may share the memory with
// another process. False if it is too short to be one.
bool ReadRecord(const void* data, uint32_t size, ParameterRecord* record) {
    *record = {};
    if (data == nullptr || size < kRecordBytes) return false;
    std::memcpy(record, data, size < sizeof *record ? size : sizeof *record);
    return record->header.psize == sizeof record->identifier;
}

float Hundredths(int value) {
    return static_cast<float>(value) / 100.0F;
}

template <typename Processor>
void SetUp(Processor* processor, uint32_t samplingRate, uint32_t channels) {
    processor->SetEnable(false);
    processor->SetSamplingRate(samplingRate);
    processor->SetChannels(channels);
}

template <typename Equalizer>
void SetUpEqualizer(Equalizer* equalizer, uint32_t samplingRate, uint32_t channels) {
    if (equalizer == nullptr) return;
    SetUp(equalizer, samplingRate, channels);
    for (int band = 0; band < kBands; ++band) equalizer->SetBandLevel(band, 0.0F);
    equalizer->Reset();
}

template <typename Enhancer>
void SetUpEnhancer(Enhancer* enhancer, uint32_t samplingRate, uint32_t channels) {
    if (enhancer == nullptr) return;
    SetUp(enhancer, samplingRate, channels);
    enhancer->SetProcess(1.0F);
    enhancer->SetLoContour(0.0F);
    enhancer->Reset();
}

}  // namespace

ProcessUnit_Orvane::ProcessUnit_Orvane() : mutex() {
    pthread_mutex_init(&mutex, nullptr);
    ReplaceWaveBuffer();
    playbackGain.reset(new (std::nothrow) PlaybackGain());
    limiterLeft.reset(new (std::nothrow) Limiter());
    limiterRight.reset(new (std::nothrow) Limiter());
    equalizer.reset(new (std::nothrow) FIREqualizer_R32R32());
    if (equalizer && !equalizer->GetPrepared()) equalizer.reset();
    enhancer.reset(new (std::nothrow) OrvaneSound_R32R32(0));
    SetUpProcessors();
    ready = AllProcessorsExist() && EnhancerPrepared();
}

ProcessUnit_Orvane::~ProcessUnit_Orvane() {
    pthread_mutex_destroy(&mutex);
}

void ProcessUnit_Orvane::SetUpProcessors() {
    if (playbackGain) {
        SetUp(playbackGain.get(), samplingRate, channels);
        playbackGain->Reset();
    }
    if (limiterLeft) limiterLeft->Reset();
    if (limiterRight) limiterRight->Reset();
    SetUpEqualizer(equalizer.get(), samplingRate, channels);
    SetUpEqualizer(equalizerR32R64.get(), samplingRate, channels);
    SetUpEnhancer(enhancer.get(), samplingRate, channels);
    SetUpEnhancer(enhancerR32R64.get(), samplingRate, channels);
}

bool ProcessUnit_Orvane::AllProcessorsExist() const {
    return waveBuffer && playbackGain && limiterLeft && limiterRight &&
           ((equalizer && enhancer) || (equalizerR32R64 && enhancerR32R64));
}

bool ProcessUnit_Orvane::EnhancerPrepared() const {
    if (enhancerR32R64) return enhancerR32R64->GetPrepared();
    return enhancer && enhancer->GetPrepared();
}

void ProcessUnit_Orvane::ReplaceWaveBuffer() {
    waveBuffer.reset();
    waveBuffer.reset(new (std::nothrow) WaveBuffer_R32(channels, kWaveBufferFrames));
    if (waveBuffer && waveBuffer->GetBufferSize() == 0) waveBuffer.reset();
}

void ProcessUnit_Orvane::ResetAllEffects() {
    if (waveBuffer) waveBuffer->Reset();
    if (playbackGain) playbackGain->Reset();
    if (equalizer) equalizer->Reset();
    if (equalizerR32R64) equalizerR32R64->Reset();
    if (enhancer) enhancer->Reset();
    if (enhancerR32R64) enhancerR32R64->Reset();
    if (limiterLeft) limiterLeft->Reset();
    if (limiterRight) limiterRight->Reset();
}

int32_t ProcessUnit_Orvane::process(audio_buffer_s* in, audio_buffer_s* out) {
    if (in == nullptr || out == nullptr || in->s16 == nullptr || out->s16 == nullptr ||
        in->frameCount != out->frameCount)
        return kStatusInvalid;
    const LockGuard lock(mutex);
    const uint32_t frames = in->frameCount;
    if (!enabled.load(std::memory_order_relaxed) || !configured || !ready || frames == 0)
        return kStatusNoData;
    if (timestampEnabled) lastProcessTimeMs = WallClockMilliseconds();

    int16_t* const output = out->s16;
    const size_t total = static_cast<size_t>(frames) * channels;
    if (in->s16 != output) std::memmove(output, in->s16, total * sizeof(int16_t));
    playbackGain->Process(in->s16, output, frames);

    waveBuffer->Reset();
    // The enhancer's room is asked for before anything is pushed, so that a refusal loses nothing
    // in the middle of the chain.
    if (!enhancer->Reserve(frames) || waveBuffer->PushSamples(output, frames) == 0) {
        LogInfo("Memory not enough!");
        waveBuffer->Reset();
        return kStatusOk;
    }
    float* const samples = waveBuffer->GetCurrentBufferR32Ptr();
    equalizer->Process(samples, frames);
    uint32_t produced = enhancer->Process(samples, frames);
    waveBuffer->SetBufferOffset(produced);
    if (produced > 0) {
        FinishSamples(samples, produced);
        produced = waveBuffer->PopSamples(output, produced, false);
    }
    if (produced < frames) {
        const size_t silent = static_cast<size_t>(frames - produced) * channels;
        std::memmove(output + silent, output, (total - silent) * sizeof(int16_t));
        std::memset(output, 0, silent * sizeof(int16_t));
    }
    return kStatusOk;
}

// Output gain and limiters, in place.
void ProcessUnit_Orvane::FinishSamples(float* samples, uint32_t frames) {
    const size_t total = static_cast<size_t>(frames) * channels;
    const float gain = outputGain;
    for (size_t i = 0; i < total; ++i) samples[i] *= gain;
    if (channels == 1) {
        for (size_t i = 0; i < total; ++i) samples[i] = limiterLeft->Process(samples[i]);
    } else {
        for (size_t i = 0; i < total; i += 2) {
            samples[i] = limiterLeft->Process(samples[i]);
            samples[i + 1] = limiterRight->Process(samples[i + 1]);
        }
    }
}

int32_t ProcessUnit_Orvane::command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                                    uint32_t* replySize, void* pReplyData) {
    {
        const LockGuard lock(mutex);
        Reply reply(replySize, pReplyData);
        switch (cmdCode) {
            case EFFECT_CMD_ENABLE:
                if (!enabled.load(std::memory_order_relaxed)) ResetAllEffects();
                break;
            case EFFECT_CMD_RESET:
                ResetAllEffects();
                break;
            case EFFECT_CMD_CONFIGURE:
                reply.WriteStatus(Configure(cmdSize, pCmdData));
                return kStatusOk;
            case EFFECT_CMD_SET_PARAM:
                reply.WriteStatus(SetParameter(cmdSize, pCmdData));
                return kStatusOk;
            case EFFECT_CMD_GET_PARAM: {
                int32_t value = 0;
                if (!reply.FitsParameter() || !QueryParameter(cmdSize, pCmdData, &value)) break;
                reply.WriteParameter(value);
                return kStatusOk;
            }
            default:
                break;
        }
    }
    return Effect::command(cmdCode, cmdSize, pCmdData, replySize, pReplyData);
}

int32_t ProcessUnit_Orvane::Configure(uint32_t cmdSize, const void* pCmdData) {
    if (pCmdData == nullptr || cmdSize < sizeof(effect_config_t)) return kStatusInvalid;
    const uint32_t oldRate = samplingRate;
    const uint32_t oldChannels = channels;
    const int32_t status = configure(pCmdData);
    if (status != kStatusOk) return status;
    if (samplingRate != oldRate || samplingRate != appliedSamplingRate) ApplySamplingRate();
    if (channels != oldChannels || channels != appliedChannels) ApplyChannels();
    return kStatusOk;
}

void ProcessUnit_Orvane::ApplySamplingRate() {
    LogInfo("Configuring new samplingrate...");
    if (playbackGain) playbackGain->SetSamplingRate(samplingRate);
    if (equalizer) equalizer->SetSamplingRate(samplingRate);
    if (equalizerR32R64) equalizerR32R64->SetSamplingRate(samplingRate);
    if (enhancer) enhancer->SetSamplingRate(samplingRate);
    if (enhancerR32R64) enhancerR32R64->SetSamplingRate(samplingRate);
    appliedSamplingRate = samplingRate;
    ready = ready && EnhancerPrepared();
    ResetAllEffects();
}

void ProcessUnit_Orvane::ApplyChannels() {
    LogInfo("Configuring new channels...");
    if (playbackGain) playbackGain->SetChannels(channels);
    if (equalizer) equalizer->SetChannels(channels);
    if (equalizerR32R64) equalizerR32R64->SetChannels(channels);
    if (enhancer) enhancer->SetChannels(channels);
    if (enhancerR32R64) enhancerR32R64->SetChannels(channels);
    ReplaceWaveBuffer();
    appliedChannels = channels;
    ready = ready && waveBuffer && EnhancerPrepared();
    ResetAllEffects();
}

int32_t ProcessUnit_Orvane::SetParameter(uint32_t cmdSize, const void* pCmdData) {
    ParameterRecord record;
    if (!ReadRecord(pCmdData, cmdSize, &record)) return kStatusInvalid;
    const uint32_t valueBytes = record.header.vsize;
    if (valueBytes > cmdSize - kRecordBytes) return kStatusInvalid;
    if (valueBytes != 4 && valueBytes != 8 && valueBytes != 12 && valueBytes != 16)
        return kStatusInvalid;
    int32_t values[4] = {};
    std::memcpy(values, record.values, valueBytes);
    DispatchCommand(record.identifier, values[0], values[1], values[2], values[3]);
    return kStatusOk;
}

bool ProcessUnit_Orvane::QueryParameter(uint32_t cmdSize, const void* pCmdData,
                                        int32_t* value) const {
    ParameterRecord record;
    if (!ReadRecord(pCmdData, cmdSize, &record)) return false;
    switch (record.identifier) {
        case PARAM_GET_VERSION:
            *value = kLibraryVersionWord;
            return true;
        case PARAM_GET_ENABLED:
            *value = enabled.load(std::memory_order_relaxed) ? 1 : 0;
            return true;
        case PARAM_GET_READY:
            *value = configured && ready ? 1 : 0;
            return true;
        case PARAM_GET_PROCESSING: {
            const uint32_t elapsed = static_cast<uint32_t>(WallClockMilliseconds()) -
                                     static_cast<uint32_t>(lastProcessTimeMs);
            const int64_t signedElapsed = static_cast<int32_t>(elapsed);
            *value = std::llabs(signedElapsed) < kActiveMs ? 1 : 0;
            return true;
        }
        case PARAM_GET_MODE:
            *value = static_cast<int32_t>(mode);
            return true;
        case PARAM_GET_SAMPLING_RATE:
            *value = static_cast<int32_t>(samplingRate);
            return true;
        case PARAM_GET_CHANNELS:
            *value = static_cast<int32_t>(channels);
            return true;
        default:
            return false;
    }
}

void ProcessUnit_Orvane::DispatchCommand(int nCmdID, int L, int H, int E, int R) {
    LogInfo("DispatchCommand(), nCmdID = %d, L = %d, H = %d, E = %d, R = %d", nCmdID, L, H, E, R);
    switch (nCmdID) {
        case PARAM_SET_TIMESTAMP_ENABLE:
            timestampEnabled = L != 0;
            break;
        case PARAM_SET_MODE: {
            const uint32_t newMode = static_cast<uint32_t>(L);
            if (newMode > 1) break;
            if (newMode != mode) ResetAllEffects();
            mode = newMode;
            break;
        }
        case PARAM_PLAYBACKGAIN_ENABLE:
            if (playbackGain) playbackGain->SetEnable(L != 0);
            break;
        case PARAM_PLAYBACKGAIN_RATIO:
            if (playbackGain) playbackGain->SetRatio(Hundredths(L));
            break;
        case PARAM_PLAYBACKGAIN_VOLUME:
            if (playbackGain) playbackGain->SetVolume(Hundredths(L));
            break;
        case PARAM_PLAYBACKGAIN_MAXGAIN:
            if (playbackGain) playbackGain->SetMaxGainFactor(Hundredths(L));
            break;
        case PARAM_EQUALIZER_ENABLE:
            if (equalizer) equalizer->SetEnable(L != 0);
            if (equalizerR32R64) equalizerR32R64->SetEnable(L != 0);
            break;
        case PARAM_EQUALIZER_BANDLEVEL:
            if (equalizer) equalizer->SetBandLevel(L, Hundredths(H));
            if (equalizerR32R64) equalizerR32R64->SetBandLevel(L, Hundredths(H));
            break;
        case PARAM_ENHANCER_ENABLE:
            if (enhancer) enhancer->SetEnable(L != 0);
            if (enhancerR32R64) enhancerR32R64->SetEnable(L != 0);
            break;
        case PARAM_ENHANCER_PROCESS:
            if (enhancer) enhancer->SetProcess(Hundredths(L));
            if (enhancerR32R64) enhancerR32R64->SetProcess(Hundredths(L));
            break;
        case PARAM_ENHANCER_LOCONTOUR:
            if (enhancer) enhancer->SetLoContour(Hundredths(L));
            if (enhancerR32R64) enhancerR32R64->SetLoContour(Hundredths(L));
            break;
        case PARAM_OUTPUT_GAIN:
            outputGain = Hundredths(L);
            break;
        case PARAM_LIMITER_GATE:
            if (limiterLeft) limiterLeft->SetGate(Hundredths(L));
            if (limiterRight) limiterRight->SetGate(Hundredths(L));
            break;
        default:
            break;
    }
}
