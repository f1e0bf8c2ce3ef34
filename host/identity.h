// The identity of the effect, which its descriptors and the library's record report and by which a
// client finds it.
#pragma once
#include "platform/effect_api.h"

constexpr char kEffectName[] = "Quenthra Orvane v2";
constexpr char kImplementor[] = "Hollin.RDT";

// The implementation UUID, with which instances are created.
constexpr effect_uuid_s kOrvaneUuid = {
    0xd92c3a90, 0x3e26, 0x11e2, 0xa25f, {0x08, 0x00, 0x20, 0x0c, 0x9a, 0x66}};
// The two type UUIDs; a descriptor names one of them.
constexpr effect_uuid_s kOrvaneType = {
    0xaa48cf24, 0x9ae1, 0x4045, 0xacb9, {0x4f, 0xe1, 0xe1, 0x56, 0x47, 0x5b}};
constexpr effect_uuid_s kBassBoostType = {
    0x0634f220, 0xddd4, 0x11db, 0xa0fc, {0x00, 0x02, 0xa5, 0xd5, 0xc5, 0x1b}};
