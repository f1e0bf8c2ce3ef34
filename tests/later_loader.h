// A loader of library interface 3.0, as Android 4.3 to 13 have it. Its records are written from
// what is known of these platforms. They are not the project's own, so a mistake in those is
// noticed.
#pragma once
#include <dlfcn.h>
#include <link.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "host/identity.h"
#include "platform/library_record.h"

struct LaterRecord {
    uint32_t tag, version;
    const char *name, *implementor;
    decltype(audio_effect_library_t::create_effect) create;
    decltype(audio_effect_library_t::release_effect) release;
    decltype(audio_effect_library_t::get_descriptor) describe;
};

struct LaterBuffer {
    size_t frames;
    const void* samples;
};

// One side of a stream.
struct LaterConfig {
    LaterBuffer buffer;
    uint32_t rateHz, channelMask;
    const void* provider[3];
    uint8_t format, accessMode;
    uint16_t mask;  // of the fields that count
};

// Returns why a loader refuses the record, or an empty text. `bytes` is the size of the symbol.
// Calls the record's function for the descriptor.
inline std::string LaterRefusal(const LaterRecord& record, size_t bytes) {
    constexpr size_t kDescriptorBytes = 172, kUuidAt = 16, kVersionAt = 32;
    if (record.tag != 0x41454C54) return "the tag is wrong";
    if (record.version >> 16 != 3) return "the library interface isn't 3";
    if (bytes != sizeof record) return "the record has another size";
    if (record.create == nullptr || record.release == nullptr || record.describe == nullptr)
        return "a function is missing";
    // Memory that the function doesn't write shows in one of two different fillings.
    std::string block[2] = {std::string(200, 'x'), std::string(200, 'y')};
    for (std::string& one : block)
        if (record.describe(&kOrvaneUuid, reinterpret_cast<effect_descriptor_t*>(one.data())) != 0)
            return "the effect of the list is unknown";
    if (block[0].substr(0, kDescriptorBytes) != block[1].substr(0, kDescriptorBytes) ||
        block[0].substr(kDescriptorBytes).find_first_not_of('x') != std::string::npos)
        return "the descriptor has another size";
    if (block[0].compare(kUuidAt, 16, reinterpret_cast<const char*>(&kOrvaneUuid), 16) != 0)
        return "the descriptor is another effect's";
    if (block[0][kVersionAt + 2] != 2 || block[0][kVersionAt + 3] != 0)
        return "the effect interface isn't 2";
    return "";
}

// A loaded file. It must outlive every instance.
class LaterLibrary {
public:
    explicit LaterLibrary(const std::string& path)
        : handle(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
        void* const symbol = handle != nullptr ? dlsym(handle, "AELI") : nullptr;
        Dl_info info;
        ElfW(Sym)* entry = nullptr;
        if (symbol == nullptr ||
            dladdr1(symbol, &info, reinterpret_cast<void**>(&entry), RTLD_DL_SYMENT) == 0 ||
            entry == nullptr) {
            fault = "no record: " + path;
            return;
        }
        const size_t bytes = entry->st_size;
        std::memcpy(&record, symbol, bytes < sizeof record ? bytes : sizeof record);
        fault = LaterRefusal(record, bytes);
        forTests.tag = record.tag;
        forTests.version = record.version;
        forTests.name = record.name;
        forTests.implementor = record.implementor;
        forTests.create_effect = record.create;
        forTests.release_effect = record.release;
        forTests.get_descriptor = record.describe;
    }
    ~LaterLibrary() {
        if (handle != nullptr) dlclose(handle);
    }
    LaterLibrary(const LaterLibrary&) = delete;
    LaterLibrary& operator=(const LaterLibrary&) = delete;

    // Returns why the file is refused, or an empty text.
    const std::string& Fault() const { return fault; }
    const LaterRecord& Record() const { return record; }
    // Returns the record in the form of interface 2.0, in which the other tests use it. Its query
    // functions are null. Returns null if the file is refused.
    const audio_effect_library_t* ForTests() const { return fault.empty() ? &forTests : nullptr; }

private:
    void* handle;
    std::string fault;
    LaterRecord record = {};
    audio_effect_library_t forTests = {};
};
