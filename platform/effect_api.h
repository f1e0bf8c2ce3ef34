// The records and codes of the Android audio effect framework, effect interface 2.0, through which
// the framework and the library communicate. Names and field order are the framework's. The layout
// is the compiler's natural one; the assertions below check it for 32-bit targets.
#pragma once
#include <cstddef>
#include <cstdint>

struct effect_uuid_s {
    uint32_t timeLow;
    uint16_t timeMid;
    uint16_t timeHiAndVersion;
    uint16_t clockSeq;
    uint8_t node[6];
};

// Both texts are padded with NULs to their full length.
struct effect_descriptor_t {
    effect_uuid_s type;
    effect_uuid_s uuid;
    uint32_t apiVersion;
    uint32_t flags;
    uint16_t cpuLoad;      // 0.1 MIPS
    uint16_t memoryUsage;  // KiB
    char name[64];
    char implementor[64];
};

// frameCount frames of interleaved 16-bit samples. In 64-bit processes the framework's frameCount
// has 64 bits. The field here is its lower half, and the upper half is 0.
struct audio_buffer_s {
    uint32_t frameCount;
    int16_t* s16;
};

struct buffer_provider_s {
    void* getBuffer;
    void* releaseBuffer;
    void* cookie;
};

struct buffer_config_t {
    audio_buffer_s buffer;
    uint32_t samplingRate;  // Hz
    uint32_t channels;      // channel mask, AUDIO_CHANNEL_OUT_...
    buffer_provider_s bufferProvider;
    uint8_t format;      // AUDIO_FORMAT_...
    uint8_t accessMode;  // EFFECT_BUFFER_ACCESS_...
    uint16_t mask;       // EFFECT_CONFIG_...: which of the fields above are valid
};

struct effect_config_t {
    buffer_config_t inputCfg;
    buffer_config_t outputCfg;
};

// Header of a parameter record; the parameter (psize bytes) and the value (vsize bytes) follow.
struct effect_param_t {
    int32_t status;
    uint32_t psize;
    uint32_t vsize;
};

struct effect_interface_s;
// Address of an instance, whose first word points at its interface table.
using effect_handle_t = const effect_interface_s**;

struct effect_interface_s {
    int32_t (*process)(effect_handle_t self, audio_buffer_s* in, audio_buffer_s* out);
    int32_t (*command)(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                       uint32_t* replySize, void* pReplyData);
    int32_t (*get_descriptor)(effect_handle_t self, effect_descriptor_t* pDescriptor);
    // For a reverse stream; null if the effect has none. The loader reads this word.
    int32_t (*process_reverse)(effect_handle_t self, audio_buffer_s* in, audio_buffer_s* out);
};

constexpr uint32_t EFFECT_CONTROL_API_VERSION = 0x00020000;

constexpr uint32_t EFFECT_FLAG_INSERT_LAST = 0x00000010;

enum effect_command_e : uint32_t {
    EFFECT_CMD_INIT = 0,
    EFFECT_CMD_CONFIGURE = 1,
    EFFECT_CMD_RESET = 2,
    EFFECT_CMD_ENABLE = 3,
    EFFECT_CMD_DISABLE = 4,
    EFFECT_CMD_SET_PARAM = 5,
    EFFECT_CMD_SET_PARAM_DEFERRED = 6,
    EFFECT_CMD_SET_PARAM_COMMIT = 7,
    EFFECT_CMD_GET_PARAM = 8,
};

constexpr uint16_t EFFECT_CONFIG_SMP_RATE = 0x0002;
constexpr uint16_t EFFECT_CONFIG_CHANNELS = 0x0004;
constexpr uint16_t EFFECT_CONFIG_FORMAT = 0x0008;
constexpr uint16_t EFFECT_CONFIG_ACC_MODE = 0x0010;

constexpr uint8_t EFFECT_BUFFER_ACCESS_WRITE = 0;
constexpr uint8_t EFFECT_BUFFER_ACCESS_READ = 1;
constexpr uint8_t EFFECT_BUFFER_ACCESS_ACCUMULATE = 2;

constexpr uint32_t AUDIO_CHANNEL_OUT_MONO = 0x1;
constexpr uint32_t AUDIO_CHANNEL_OUT_STEREO = 0x3;
constexpr uint8_t AUDIO_FORMAT_PCM_16_BIT = 1;

// The platform's error numbers, negated.
constexpr int32_t kStatusOk = 0;
constexpr int32_t kStatusNotFound = -2;
constexpr int32_t kStatusInvalid = -22;
constexpr int32_t kStatusNoData = -61;

static_assert(sizeof(effect_uuid_s) == 16);
static_assert(sizeof(effect_descriptor_t) == 172);
static_assert(offsetof(effect_descriptor_t, apiVersion) == 32);
static_assert(offsetof(effect_descriptor_t, name) == 44);
static_assert(offsetof(effect_descriptor_t, implementor) == 108);
static_assert(sizeof(effect_param_t) == 12);
static_assert(offsetof(effect_config_t, outputCfg) == sizeof(buffer_config_t));
static_assert(sizeof(effect_interface_s) == 4 * sizeof(void*));
static_assert(sizeof(effect_config_t) == (sizeof(void*) == 4 ? 64 : 112));
static_assert(offsetof(audio_buffer_s, s16) == sizeof(void*));
static_assert(sizeof(void*) != 4 || sizeof(audio_buffer_s) == 8);
static_assert(sizeof(void*) != 4 || offsetof(buffer_config_t, samplingRate) == 8);
static_assert(sizeof(void*) != 4 || offsetof(buffer_config_t, format) == 28);
static_assert(sizeof(void*) != 4 || offsetof(buffer_config_t, mask) == 30);
