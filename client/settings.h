// What a listener can set, in the units of the parameter table.
//
// Of a fixed size: copying, setting and asking allocate nothing. Thread: any; one at a time.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "client/parameter_command.h"
#include "table/parameters.h"

// Commands in the order in which they are to be sent.
class ParameterCommands {
public:
    void Add(const ParameterCommand& command) { commands.at(count++) = command; }
    const ParameterCommand* begin() const { return commands.data(); }
    const ParameterCommand* end() const { return commands.data() + count; }

private:
    std::array<ParameterCommand, std::size(kParameters) + kBandCount> commands;
    size_t count = 0;
};

// New ones are those of a new instance: every processor off.
class Settings {
public:
    using Levels = std::array<double, kBandCount>;

    // Rounds to what the wire carries (hundredths, mostly). False, and nothing changes: `value` is
    // outside the table's range or not a number. id: a switch or a value.
    bool Set(ParameterId id, double value);
    // One band of the equalizer. False, also: no such band.
    bool SetBand(size_t band, double level);
    // Back to what a new instance has.
    void Unset(ParameterId id);

    bool IsSet(ParameterId id) const { return rows[RowOf(id)].isSet; }
    double Get(ParameterId id) const;
    const Levels& BandLevels() const { return levels; }
    // Of a row that is a switch. One that follows its values (the equalizer's), as long as it isn't
    // set, is on when one of them isn't the default.
    bool IsOn(ParameterId id) const;
    // False for a row that does nothing because the switch that it needs is off. Values turn a
    // switch that follows them on or off as long as it isn't set.
    bool Acts(const Parameter& parameter) const;

    // What brings a new instance to these settings: what was set, switches last.
    ParameterCommands Commands() const;

    bool operator==(const Settings&) const = default;

private:
    static constexpr size_t RowOf(ParameterId id) {
        return static_cast<size_t>(&ParameterOf(id) - kParameters);
    }

    struct Row {
        bool isSet = false;
        double value = 0;
        bool operator==(const Row&) const = default;
    };
    bool FollowsNow(ParameterId id) const;
    bool IsDefault(const Parameter& parameter) const;

    std::array<Row, std::size(kParameters)> rows;
    Levels levels{};
};
