// The record through which the Android audio effect framework finds the library's functions. Names
// and field order are the framework's.
#pragma once
#include "platform/effect_api.h"

// The major version of the library interface. Android 4.0 to 4.2 load only libraries of interface
// 2, Android 4.3 to 13 only those of interface 3. Each build of the library has one of the two.
#ifndef ORVANE_LIBRARY_INTERFACE
#define ORVANE_LIBRARY_INTERFACE 2
#endif

struct audio_effect_library_t {
    uint32_t tag;      // AUDIO_EFFECT_LIBRARY_TAG
    uint32_t version;  // major in the upper half, minor in the lower
    const char* name;
    const char* implementor;
#if ORVANE_LIBRARY_INTERFACE == 2
    int32_t (*query_num_effects)(uint32_t* pNumEffects);
    int32_t (*query_effect)(uint32_t index, effect_descriptor_t* pDescriptor);
#endif
    int32_t (*create_effect)(const effect_uuid_s* uuid, int32_t sessionId, int32_t ioId,
                             effect_handle_t* pHandle);
    int32_t (*release_effect)(effect_handle_t handle);
    int32_t (*get_descriptor)(const effect_uuid_s* uuid, effect_descriptor_t* pDescriptor);
};

// Name of the exported audio_effect_library_t.
#define AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR "AELI"

constexpr uint32_t AUDIO_EFFECT_LIBRARY_TAG = 0x41454C54;  // 'A' 'E' 'L' 'T', big-endian
constexpr uint32_t EFFECT_LIBRARY_API_VERSION = ORVANE_LIBRARY_INTERFACE << 16;

static_assert(ORVANE_LIBRARY_INTERFACE == 2 || ORVANE_LIBRARY_INTERFACE == 3);
static_assert(sizeof(audio_effect_library_t) ==
              8 + (ORVANE_LIBRARY_INTERFACE == 2 ? 7 : 5) * sizeof(void*));
