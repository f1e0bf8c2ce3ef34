// Holds everything that a listener can set, in the units of the parameter table
// (table/parameters.h).
//
// Sizes are fixed: copying, setting and asking allocate nothing. Thread: any, one at a time.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "client/parameter_command.h"
#include "table/parameters.h"

// A list of commands in the order in which they must be sent.
class ParameterCommands {
public:
    void Add(const ParameterCommand& command) { commands[count++] = command; }
    const ParameterCommand* begin() const { return commands.data(); }
    const ParameterCommand* end() const { return commands.data() + count; }

private:
    std::array<ParameterCommand, std::size(kParameters) + kBandCount> commands;
    size_t count = 0;
};

// New settings are those of a new instance: every processor is off and nothing is set.
class Settings {
public:
    using Levels = std::array<double, kBandCount>;

    // Sets a switch (0 or 1) or a value. The value is rounded to the nearest that the wire can
    // carry, which for most rows is a hundredth. Returns false, and changes nothing, if `value` is
    // outside the table's range or NaN.
    bool Set(ParameterId id, double value);
    // Sets the level, -1 to 1, of one band of the equalizer, 0 (lowest) to 9. Rounds as Set does.
    // Returns false, and changes nothing, if level or band is outside its range or the level is
    // NaN.
    bool SetBand(size_t band, double level);
    // Returns a parameter to what a new instance has; for the row of bands, all ten levels. No
    // command is then sent for it.
    void Unset(ParameterId id);

    bool IsSet(ParameterId id) const { return rows[RowOf(id)].isSet; }
    // Returns the value that was set, or the default. For band levels use BandLevels().
    double Get(ParameterId id) const;
    const Levels& BandLevels() const { return levels; }
    // Returns whether a switch is on; `id` must be a switch. The equalizer's switch follows its
    // values: as long as nobody sets the switch, it is on when a band's level isn't the default.
    bool IsOn(ParameterId id) const;
    // Returns false if the row has no effect because the switch that it needs is off. A row whose
    // switch follows its values always acts as long as nobody sets the switch.
    bool Acts(const Parameter& parameter) const;

    // Returns the commands that bring a new instance to these settings: everything that was set,
    // values first and switches last. A switch that is on because it follows its values is
    // included.
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
