// The data of a set-parameter or get-parameter command in the form that an application sends.
// Values are integers as on the wire (table/parameters.h). Thread: any; nothing allocates.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "platform/effect_api.h"

struct ParameterCommand {
    static constexpr size_t kMaxValues = 4;

    effect_param_t header{0, sizeof(int32_t), 0};
    int32_t id = 0;
    int32_t values[kMaxValues] = {};
    uint32_t bytes = 0;  // number of bytes to send, from `header` on
};

// Makes a set-parameter command with `count` values, 1 to 4. Values after the fourth are left out.
inline ParameterCommand PackSet(int32_t id, const int32_t* values, size_t count) {
    count = std::min(count, ParameterCommand::kMaxValues);
    ParameterCommand command;
    command.id = id;
    command.header.vsize = static_cast<uint32_t>(count * sizeof *values);
    std::copy_n(values, count, command.values);
    command.bytes =
        static_cast<uint32_t>(offsetof(ParameterCommand, values)) + command.header.vsize;
    return command;
}
inline ParameterCommand PackSet(int32_t id, std::initializer_list<int32_t> values) {
    return PackSet(id, values.begin(), values.size());
}

// Makes a get-parameter command.
inline ParameterCommand PackGet(int32_t id) {
    ParameterCommand command;
    command.id = id;
    command.header.vsize = sizeof(int32_t);
    command.bytes = offsetof(ParameterCommand, values);
    return command;
}
