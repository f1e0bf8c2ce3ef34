#include "host/entry_points.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

#include "host/effect.h"
#include "host/identity.h"
#include "platform/log.h"
#include "platform/system.h"
#include "table/parameters.h"

namespace {

// While this file exists, the effect reports the platform's bass-boost type as its own.
constexpr char kSafeModeMarker[] = "qth_ov_safemode.sig";

constexpr uint16_t kCpuLoad = 10;      // 0.1 MIPS
constexpr uint16_t kMemoryUsage = 24;  // KiB

constexpr effect_descriptor_t Describe(const effect_uuid_s& type) {
    effect_descriptor_t descriptor = {type,
                                      kOrvaneUuid,
                                      EFFECT_CONTROL_API_VERSION,
                                      EFFECT_FLAG_INSERT_LAST,
                                      kCpuLoad,
                                      kMemoryUsage,
                                      {},
                                      {}};
    std::copy(std::begin(kEffectName), std::end(kEffectName), descriptor.name);
    std::copy(std::begin(kImplementor), std::end(kImplementor), descriptor.implementor);
    return descriptor;
}
constexpr effect_descriptor_t gDescriptorSafeMode = Describe(kBassBoostType);
constexpr effect_descriptor_t gDescriptorNormal = Describe(kOrvaneType);

// The record that a handle points to. The framework reads the interface table through its first
// word.
struct EffectInstance {
    const effect_interface_s* interface;
    Effect* unit;                           // owned
    const effect_descriptor_t* descriptor;  // the one in force at creation
};

EffectInstance* InstanceOf(effect_handle_t handle) {
    return reinterpret_cast<EffectInstance*>(handle);
}

const effect_descriptor_t& ChosenDescriptor() {
    return checkSignal(kSafeModeMarker) == 1 ? gDescriptorSafeMode : gDescriptorNormal;
}

// Logs why a call fails. Returns its status.
int32_t Refused(const char* reason, int32_t status = kStatusInvalid) {
    LogInfo("%s", reason);
    return status;
}

bool SameUuid(const effect_uuid_s& a, const effect_uuid_s& b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// Reads a record from any address. The copy goes through bytes, because clang assumes that a typed
// pointer given to memcpy is aligned.
effect_uuid_s ReadUuid(const effect_uuid_s* uuid) {
    effect_uuid_s copy;
    std::memcpy(&copy, reinterpret_cast<const char*>(uuid), sizeof copy);
    return copy;
}
void LogUuid(const char* function, const effect_uuid_s& uuid) {
    char text[kUuidTextSize];
    uuidToString(&uuid, text);
    LogInfo("%s(), uuid = %s", function, text);
}
void WriteDescriptor(const effect_descriptor_t& descriptor, effect_descriptor_t* destination) {
    std::memcpy(reinterpret_cast<char*>(destination), &descriptor, sizeof descriptor);
}

int32_t InterfaceProcess(effect_handle_t self, audio_buffer_s* in, audio_buffer_s* out) {
    EffectInstance* const instance = InstanceOf(self);
    if (instance == nullptr || instance->unit == nullptr) return kStatusInvalid;
    return instance->unit->process(in, out);
}

int32_t InterfaceCommand(effect_handle_t self, uint32_t cmdCode, uint32_t cmdSize, void* pCmdData,
                         uint32_t* replySize, void* pReplyData) {
    EffectInstance* const instance = InstanceOf(self);
    if (instance == nullptr || instance->unit == nullptr) return kStatusInvalid;
    return instance->unit->command(cmdCode, cmdSize, pCmdData, replySize, pReplyData);
}

int32_t InterfaceGetDescriptor(effect_handle_t self, effect_descriptor_t* pDescriptor) {
    const EffectInstance* const instance = InstanceOf(self);
    if (instance == nullptr || pDescriptor == nullptr) return kStatusInvalid;
    WriteDescriptor(*instance->descriptor, pDescriptor);
    return kStatusOk;
}

constexpr effect_interface_s gEffectInterface = {InterfaceProcess, InterfaceCommand,
                                                 InterfaceGetDescriptor, nullptr};

}  // namespace

int32_t uuidToString(const effect_uuid_s* uuid, char* out) {
    std::snprintf(out, kUuidTextSize, "%08x-%04x-%04x-%04x-%02x%02x%02x%02x%02x%02x", uuid->timeLow,
                  uuid->timeMid, uuid->timeHiAndVersion, uuid->clockSeq, uuid->node[0],
                  uuid->node[1], uuid->node[2], uuid->node[3], uuid->node[4], uuid->node[5]);
    return kStatusOk;
}

int32_t checkSignal(const char* name) {
    return DataFileExists(name) ? 1 : 0;
}

extern "C" {

int32_t EffectQueryNumberEffects(uint32_t* pNumEffects) {
    if (pNumEffects != nullptr) *pNumEffects = 1;
    return kStatusOk;
}

int32_t EffectQueryEffect(uint32_t index, effect_descriptor_t* pDescriptor) {
    LogInfo("Enter EffectQueryEffect(), index = %d", static_cast<int>(index));
    if (pDescriptor == nullptr) return Refused("EffectQueryEffect(), Error [pDescriptor = NULL]");
    if (index != 0)
        return Refused("EffectQueryEffect(), Error [index out of range]", kStatusNotFound);
    WriteDescriptor(ChosenDescriptor(), pDescriptor);
    LogInfo("Exit EffectQueryEffect()");
    return kStatusOk;
}

int32_t EffectGetDescriptor(const effect_uuid_s* uuid, effect_descriptor_t* pDescriptor) {
    LogInfo("Enter EffectGetDescriptor()");
    if (uuid == nullptr) return Refused("EffectGetDescriptor(), uuid = NULL");
    if (pDescriptor == nullptr) return Refused("EffectGetDescriptor(), pDescriptor = NULL");
    const effect_uuid_s wanted = ReadUuid(uuid);
    LogUuid("EffectGetDescriptor", wanted);
    const effect_descriptor_t& descriptor = ChosenDescriptor();
    if (!SameUuid(wanted, descriptor.uuid))
        return Refused("EffectGetDescriptor(), Error [effect not found]", kStatusNotFound);
    WriteDescriptor(descriptor, pDescriptor);
    return kStatusOk;
}

int32_t EffectCreate(const effect_uuid_s* uuid, int32_t /*sessionId*/, int32_t /*ioId*/,
                     effect_handle_t* pHandle) {
    LogInfo("Enter EffectCreate()");
    if (uuid == nullptr) return Refused("EffectCreate(), Error [uuid = NULL]");
    if (pHandle == nullptr) return Refused("EffectCreate(), Error [pEffect = NULL]");
    const effect_uuid_s wanted = ReadUuid(uuid);
    LogUuid("EffectCreate", wanted);
    const effect_descriptor_t& descriptor = ChosenDescriptor();
    if (!SameUuid(wanted, descriptor.uuid))
        return Refused("EffectCreate(), Error [effect not found]", kStatusNotFound);
    auto* const instance = static_cast<EffectInstance*>(std::calloc(1, sizeof(EffectInstance)));
    if (instance == nullptr)
        return Refused("EffectCreate(), qth orvane effect, Error [calloc() return NULL]");
    LogInfo("EffectCreate(), qth orvane effect (%s), Constructing ProcessUnit_Orvane",
            &descriptor == &gDescriptorSafeMode ? "safemode" : "normal");
    instance->interface = &gEffectInterface;
    instance->unit = MakeEffect();
    if (instance->unit == nullptr) {
        LogInfo("EffectCreate(), qth orvane effect, Error [new ProcessUnit_Orvane() return NULL]");
        LogInfo("EffectCreate(), qth orvane effect, Error [ProcessUnit_Orvane construct failed]");
        std::free(instance);
        return kStatusInvalid;
    }
    instance->descriptor = &descriptor;
    LogInfo("Creating %s", descriptor.name);
    *pHandle = &instance->interface;
    return kStatusOk;
}

int32_t EffectRelease(effect_handle_t handle) {
    if (handle == nullptr) return kStatusInvalid;
    LogInfo("EffectRelease(), Deconstructing ProcessUnit");
    EffectInstance* const instance = InstanceOf(handle);
    DestroyEffect(instance->unit);
    std::free(instance);
    return kStatusOk;
}

// The record holds hidden second names of the entry points. The platform's loader exports functions
// with the first names, so a name that is looked up would lead to the loader.
#define OWN_FUNCTION(name) \
    __attribute__((alias("Effect" #name), visibility("hidden"))) decltype(Effect##name) Own##name
#if ORVANE_LIBRARY_INTERFACE == 2
OWN_FUNCTION(QueryNumberEffects);
OWN_FUNCTION(QueryEffect);
#endif
OWN_FUNCTION(Create);
OWN_FUNCTION(Release);
OWN_FUNCTION(GetDescriptor);

const audio_effect_library_t AELI = {AUDIO_EFFECT_LIBRARY_TAG,
                                     EFFECT_LIBRARY_API_VERSION,
                                     kEffectName,
                                     kImplementor,
#if ORVANE_LIBRARY_INTERFACE == 2
                                     OwnQueryNumberEffects,
                                     OwnQueryEffect,
#endif
                                     OwnCreate,
                                     OwnRelease,
                                     OwnGetDescriptor};

int GetLibraryVersionMain() {
    return (kLibraryVersionWord >> 24) & 0xFF;
}
int GetLibraryVersionSub() {
    return (kLibraryVersionWord >> 16) & 0xFF;
}
int GetLibraryVersionExt() {
    return (kLibraryVersionWord >> 8) & 0xFF;
}
int GetLibraryVersionBuild() {
    return kLibraryVersionWord & 0xFF;
}
const char* GetLibraryVersionCodename() {
    return "Lodestone";
}
}
