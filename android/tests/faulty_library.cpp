// Stands in front of the library that ORVANE_LIBRARY names, and adds the fault that ORVANE_FAULT
// names. orvane-check must notice each.
#include <dlfcn.h>

#include <cstdlib>
#include <cstring>

#include "platform/library_record.h"

namespace {

// A record. Interface 2.0 has two more functions than 3.0, and has them first.
struct Record {
    uint32_t tag, version;
    const char *name, *implementor;
    void* functions[5];
};

decltype(audio_effect_library_t::create_effect) realCreate;
effect_interface_s realInterface, faultyInterface;
uint32_t calls = 0;

bool Has(const char* fault) {
    return std::strcmp(std::getenv("ORVANE_FAULT"), fault) == 0;
}

// Changes one sample in the first history, or refuses all buffers after two histories.
int32_t Process(effect_handle_t self, audio_buffer_s* in, audio_buffer_s* out) {
    ++calls;
    if (calls > 200 && Has("refusal")) return kStatusNoData;
    const int32_t status = realInterface.process(self, in, out);
    if (calls == 30 && status == kStatusOk && Has("sample")) out->s16[0] ^= 1;
    return status;
}

int32_t Create(const effect_uuid_s* uuid, int32_t session, int32_t io, effect_handle_t* handle) {
    if (Has("instance")) return kStatusInvalid;
    const int32_t status = realCreate(uuid, session, io, handle);
    if (status != kStatusOk) return status;
    faultyInterface = realInterface = ***handle;
    faultyInterface.process = Process;
    **handle = &faultyInterface;
    return status;
}

int32_t GetNoDescriptor(const effect_uuid_s*, effect_descriptor_t*) {
    return kStatusNotFound;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) Record AELI;
Record AELI;

namespace {
__attribute__((constructor)) void MakeRecord() {
    void* const library = dlopen(std::getenv("ORVANE_LIBRARY"), RTLD_NOW);
    const auto* const real = static_cast<const Record*>(dlsym(library, "AELI"));
    const size_t create = real->version >> 16U == 2 ? 2 : 0;
    std::memcpy(&AELI, real, offsetof(Record, functions) + (create + 3) * sizeof(void*));
    realCreate = reinterpret_cast<decltype(realCreate)>(AELI.functions[create]);
    AELI.functions[create] = reinterpret_cast<void*>(Create);
    if (Has("effect")) AELI.functions[create + 2] = reinterpret_cast<void*>(GetNoDescriptor);
    if (Has("function")) AELI.functions[create + 1] = nullptr;
    if (Has("tag")) AELI.tag ^= 1U;
    if (Has("version")) AELI.version += 0x00020000;
}
}  // namespace
