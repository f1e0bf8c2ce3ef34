#include "host/reply.h"

#include <cstddef>
#include <cstring>

#include "platform/effect_api.h"

namespace {
constexpr uint32_t kValueOffset =
    sizeof(effect_param_t) + sizeof(int32_t);  // behind the identifier
constexpr uint32_t kParameterBytes = kValueOffset + sizeof(int32_t);
constexpr uint32_t kStatusBytes = sizeof(int32_t);
}  // namespace

Reply::Reply(uint32_t* replySize, void* replyData)
    : size(reinterpret_cast<unsigned char*>(replySize)),
      data(static_cast<unsigned char*>(replyData)),
      offered(0) {
    if (data == nullptr) return;
    offered = kStatusBytes;
    if (size != nullptr) std::memcpy(&offered, size, sizeof offered);
}

bool Reply::FitsParameter() const {
    return offered >= kParameterBytes;
}

void Reply::WriteStatus(int32_t status) {
    if (offered >= kStatusBytes) StoreWord(0, status);
    if (offered < kStatusBytes) StoreSize(0);
    if (offered > kStatusBytes) StoreSize(kStatusBytes);
}

void Reply::WriteParameter(int32_t value) {
    StoreWord(offsetof(effect_param_t, status), kStatusOk);
    StoreWord(offsetof(effect_param_t, vsize), sizeof(int32_t));
    StoreWord(kValueOffset, value);
    StoreSize(kParameterBytes);
}

void Reply::WriteNoParameter() {
    if (offered < sizeof(effect_param_t)) {
        StoreSize(0);
        return;
    }
    StoreWord(offsetof(effect_param_t, status), kStatusInvalid);
    StoreWord(offsetof(effect_param_t, vsize), 0);
    StoreSize(sizeof(effect_param_t));
}

void Reply::StoreSize(uint32_t bytes) {
    if (size != nullptr) std::memcpy(size, &bytes, sizeof bytes);
}

void Reply::StoreWord(uint32_t offset, int32_t value) {
    std::memcpy(data + offset, &value, sizeof value);
}
