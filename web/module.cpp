// The module's exports for one instance of the effect, which is called as the framework calls it.
// Results are those of ClientInstance.
#include "client/instance.h"
#include "host/entry_points.h"
#include "web/export.h"

ORVANE_EXPORT(create) ClientInstance* Create() {
    auto* const instance = new (std::nothrow) ClientInstance(AELI);
    if (instance == nullptr || instance->handle != nullptr) return instance;
    delete instance;
    return nullptr;
}
ORVANE_EXPORT(release) void Release(ClientInstance* instance) {
    delete instance;
}
ORVANE_EXPORT(configure)
int32_t Configure(ClientInstance* instance, uint32_t rateHz, uint32_t channels) {
    return instance->Configure(rateHz, channels);
}
// Sends a command without data.
ORVANE_EXPORT(command) int32_t Command(ClientInstance* instance, uint32_t code) {
    return instance->Command(code);
}
// Sets a parameter. `values` holds `count` numbers of 32 bits, 1 to 4.
ORVANE_EXPORT(set)
int32_t Set(ClientInstance* instance, int32_t id, const int32_t* values, uint32_t count) {
    return instance->Set(PackSet(id, values, count));
}
ORVANE_EXPORT(get) int32_t Get(ClientInstance* instance, int32_t id) {
    return instance->Get(id);
}
// Processes frames of interleaved 16-bit samples. `in` and `out` may be equal.
ORVANE_EXPORT(process)
int32_t Process(ClientInstance* instance, const int16_t* in, int16_t* out, uint32_t frames) {
    return instance->Process(in, out, frames);
}
