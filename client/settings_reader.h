// Reads settings from texts. The form of the texts is that of client/settings_text.h.
//
// Nothing here allocates, throws, or depends on the locale's decimal point. Thread: any.
#pragma once
#include <array>
#include <cstddef>
#include <string_view>

#include "client/settings.h"

// A line that says what is wrong with a text. What doesn't fit is cut.
class Fault {
public:
    static constexpr size_t kMostBytes = 255;

    const char* Text() const { return text.data(); }
    bool IsEmpty() const { return length == 0; }
    Fault& Add(std::string_view more);
    // Adds a part of the text that is read, at most its first 60 bytes.
    Fault& AddQuoted(std::string_view more);
    Fault& Add(double number);
    Fault& AddRangeOf(const Parameter& parameter);

private:
    std::array<char, kMostBytes + 1> text{};
    size_t length = 0;
};

// Returns the text without blanks at its ends.
std::string_view Trimmed(std::string_view text);

// Cuts the part before the next separator from *rest. Returns false if no part is left; the data of
// *rest is then null. *part has no blanks at its ends. A text without a separator is one part.
bool NextPart(std::string_view* rest, char separator, std::string_view* part);

// Reads a decimal number: "-0.45", "+3", "1e-2". Returns false if that isn't all of the text. Up to
// 15 digits without an exponent, it is the double that is nearest to the number.
bool ReadNumber(std::string_view text, double* value);

// Returns null if the table has no such key.
const Parameter* FindByKey(std::string_view key);

// Sets one value from its text. If the text is wrong, returns false, adds to `fault` what is wrong
// ("ratio 11 is outside 0 to 10"), and leaves `settings` unchanged.
bool SetFromText(std::string_view key, std::string_view value, Settings* settings, Fault* fault);

// Sets what the lines of a settings file say. Each key may appear once. Stops at the first wrong
// line and returns false. Adds to `fault` the line's number and what is wrong: "3: no setting is
// called rato". Settings of the lines before it stay set. A text of more than kMostSettingsBytes
// bytes is wrong.
bool ReadSettings(std::string_view text, Settings* settings, Fault* fault);
constexpr size_t kMostSettingsBytes = 1000000;
