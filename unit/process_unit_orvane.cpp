#include "unit/process_unit_orvane.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "host/reply.h"
#include "platform/log.h"
#include "platform/system.h"
#include "table/parameters.h"

namespace {

constexpr int64_t kActiveMs = 1000;

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

// A parameter record: the header, the identifier and up to four values.
struct ParameterRecord {
    effect_param_t header;
    int32_t identifier;
    int32_t values[4];
};
constexpr uint32_t kRecordBytes = offsetof(ParameterRecord, values);  // without values

// Copies the record from the caller's block once, because another process may share and change that
// memory. Returns false if the block is too short for a record.
bool ReadRecord(const void* data, uint32_t size, ParameterRecord* record) {
    *record = {};
    if (data == nullptr || size < kRecordBytes) return false;
    std::memcpy(record, data, size < sizeof *record ? size : sizeof *record);
    return record->header.psize == sizeof record->identifier;
}

// Returns null if no parameter has the identifier.
const ParameterRule* FindRule(int32_t identifier) {
    for (const ParameterRule& rule : kParameterRules)
        if (rule.id == identifier) return &rule;
    return nullptr;
}

void LogParameter(int identifier, int L, int H, int E, int R) {
    LogInfo("DispatchCommand(), nCmdID = %d, L = %d, H = %d, E = %d, R = %d", identifier, L, H, E,
            R);
}

}  // namespace

Effect* MakeEffect() {
    return new (std::nothrow) ProcessUnit_Orvane();
}
void DestroyEffect(Effect* effect) {
    delete static_cast<ProcessUnit_Orvane*>(effect);
}

ProcessUnit_Orvane::ProcessUnit_Orvane() : mutex(), chain(samplingRate, channels) {
    pthread_mutex_init(&mutex, nullptr);
}

ProcessUnit_Orvane::~ProcessUnit_Orvane() {
    pthread_mutex_destroy(&mutex);
}

void ProcessUnit_Orvane::ResetAllEffects() {
    chain.Reset();
}

int32_t ProcessUnit_Orvane::process(audio_buffer_s* in, audio_buffer_s* out) {
    if (in == nullptr || out == nullptr || in->s16 == nullptr || out->s16 == nullptr ||
        in->frameCount != out->frameCount)
        return kStatusInvalid;
    bool isWhole = true;
    {
        const LockGuard lock(mutex);
        const uint32_t frames = in->frameCount;
        if (!enabled.load(std::memory_order_relaxed) || !configured || !chain.Ready() ||
            frames == 0)
            return kStatusNoData;
        if (timestampEnabled) lastProcessTimeMs = WallClockMilliseconds();
        isWhole = chain.Process(in->s16, out->s16, frames);
    }
    if (!isWhole) LogInfo("Memory not enough!");
    return kStatusOk;
}

int32_t ProcessUnit_Orvane::command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                                    uint32_t* replySize, void* pReplyData) {
    Reply reply(replySize, pReplyData);
    if (cmdCode == EFFECT_CMD_SET_PARAM) {
        reply.WriteStatus(SetParameter(cmdSize, pCmdData));
        return kStatusOk;
    }
    if (cmdCode == EFFECT_CMD_CONFIGURE) {
        reply.WriteStatus(TakeConfiguration(cmdSize, pCmdData));
        return kStatusOk;
    }
    {
        const LockGuard lock(mutex);
        switch (cmdCode) {
            case EFFECT_CMD_ENABLE:
                if (!enabled.load(std::memory_order_relaxed)) ResetAllEffects();
                break;
            case EFFECT_CMD_RESET:
                ResetAllEffects();
                break;
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

int32_t ProcessUnit_Orvane::TakeConfiguration(uint32_t cmdSize, const void* pCmdData) {
    if (pCmdData == nullptr || cmdSize < sizeof(effect_config_t)) return kStatusInvalid;
    DeferredLog log;
    int32_t status = kStatusOk;
    {
        const LockGuard lock(mutex);
        status = ApplyConfiguration(pCmdData, &log);
    }
    log.Write();
    return status;
}

int32_t ProcessUnit_Orvane::ApplyConfiguration(const void* pConfig, DeferredLog* log) {
    const uint32_t oldRate = samplingRate;
    const uint32_t oldChannels = channels;
    const int32_t status = configure(pConfig, log);
    if (status != kStatusOk) return status;
    if (samplingRate != oldRate || samplingRate != chain.SamplingRate()) {
        log->LogInfo("Configuring new samplingrate...");
        chain.SetSamplingRate(samplingRate);
    }
    if (channels != oldChannels || channels != chain.Channels()) {
        log->LogInfo("Configuring new channels...");
        chain.SetChannels(channels);
    }
    return kStatusOk;
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
    // Log before taking the lock: `process` must not wait for the log's reader.
    LogParameter(record.identifier, values[0], values[1], values[2], values[3]);
    const LockGuard lock(mutex);
    ApplyParameter(record.identifier, values[0], values[1]);
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
            *value = configured && chain.Ready() ? 1 : 0;
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
    LogParameter(nCmdID, L, H, E, R);
    ApplyParameter(nCmdID, L, H);
}

void ProcessUnit_Orvane::ApplyParameter(int32_t identifier, int32_t L, int32_t H) {
    const ParameterRule* const rule = FindRule(identifier);
    if (rule == nullptr) return;
    switch (rule->id) {
        case PARAM_SET_TIMESTAMP_ENABLE:
            timestampEnabled = L != 0;
            break;
        case PARAM_SET_MODE: {
            const auto newMode = static_cast<uint32_t>(L);
            if (newMode > 1) break;
            if (newMode != mode) ResetAllEffects();
            mode = newMode;
            break;
        }
        default: {
            const int32_t sent = rule->kind == ParameterKind::kBandValue ? H : L;
            chain.Set(rule->id, static_cast<float>(sent) / static_cast<float>(rule->wireScale), L);
            break;
        }
    }
}
