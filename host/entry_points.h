// The library's boundary: the exported record AELI with its entry points, the version getters, and
// two helpers that tests use.
#pragma once
#include <cstddef>

#include "platform/export.h"
#include "platform/library_record.h"

extern "C" {
ORVANE_API extern const audio_effect_library_t AELI;

// They return 0, -22 (invalid argument) or -2 (not found). A failed call leaves the caller's memory
// unchanged. Any thread.
ORVANE_API int32_t EffectQueryNumberEffects(uint32_t* pNumEffects);
ORVANE_API int32_t EffectQueryEffect(uint32_t index, effect_descriptor_t* pDescriptor);
ORVANE_API int32_t EffectCreate(const effect_uuid_s* uuid, int32_t sessionId, int32_t ioId,
                                effect_handle_t* pHandle);
ORVANE_API int32_t EffectRelease(effect_handle_t handle);
ORVANE_API int32_t EffectGetDescriptor(const effect_uuid_s* uuid, effect_descriptor_t* pDescriptor);

ORVANE_API int GetLibraryVersionMain();
ORVANE_API int GetLibraryVersionSub();
ORVANE_API int GetLibraryVersionExt();
ORVANE_API int GetLibraryVersionBuild();
ORVANE_API const char* GetLibraryVersionCodename();
}

constexpr size_t kUuidTextSize = 37;  // 36 characters and a NUL

// Writes kUuidTextSize characters, lower-case hexadecimal. Returns 0.
int32_t uuidToString(const effect_uuid_s* uuid, char* out);

// Returns 1 if the file `name` exists in the data directory, otherwise 0.
int32_t checkSignal(const char* name);
