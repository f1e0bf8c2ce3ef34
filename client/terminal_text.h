// Text from names, tags and settings files, made safe for a terminal and for a shell.
//
// A file's name or a tag may hold control characters. With them a terminal sets its title, moves
// the cursor or reverses the order of letters. So everything that is printed goes through
// TerminalText. Thread: any; allocates.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// Returns true for code points that act on a terminal. These are control characters, line and
// paragraph separators, and characters that override the direction of writing.
constexpr bool ActsOnTerminal(uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0) || (code >= 0x2028 && code <= 0x202E) ||
           (code >= 0x2066 && code <= 0x2069);
}

// Reads the UTF-8 character at the beginning of `text`, which must not be empty. Returns its length
// in bytes, 1 to 4, and stores its code point in *code. Returns 0 if the bytes are not UTF-8; *code
// is then undefined.
inline size_t ReadUtf8(std::string_view text, uint32_t* code) {
    constexpr std::array<uint32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    const auto first = static_cast<unsigned char>(text[0]);
    const size_t length = first < 0x80                    ? 1
                          : first >= 0xC0 && first < 0xE0 ? 2
                          : first >= 0xE0 && first < 0xF0 ? 3
                          : first >= 0xF0 && first < 0xF8 ? 4
                                                          : 0;
    if (length == 0 || length > text.size()) return 0;
    *code = length == 1 ? first : first & (0x7FU >> length);
    for (const char c : text.substr(1, length - 1)) {
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80) return 0;
        *code = *code << 6 | (static_cast<unsigned char>(c) & 0x3FU);
    }
    return *code >= kLeast.at(length) ? length : 0;
}

// Returns `text` with each character that acts on a terminal replaced by an escape such as
// "\u001b". Characters in `kept` (ASCII) stay, and so does all other UTF-8. Bytes that are not
// UTF-8 stay too, unless 8-bit terminals act on them: those become "\x9b" and the like. JSON keeps
// its meaning if `kept` holds its line ends.
inline std::string TerminalText(std::string_view text, std::string_view kept = "") {
    std::string safe;
    while (!text.empty()) {
        uint32_t code = static_cast<unsigned char>(text[0]);
        const size_t length = ReadUtf8(text, &code);
        const std::string_view letter = text.substr(0, length == 0 ? 1 : length);
        text.remove_prefix(letter.size());
        if (length == 0) code = static_cast<unsigned char>(letter[0]);
        if (ActsOnTerminal(code) && kept.find(letter) == std::string_view::npos) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), length == 0 ? "\\x%02x" : "\\u%04x", code);
            safe += escape.data();
        } else {
            safe += letter;
        }
    }
    return safe;
}

// Returns `name` quoted as one word of a command line for bash. The word can't be taken for an
// option and holds nothing that acts on a terminal.
inline std::string ShellQuoted(std::string_view name) {
    std::string word(name.starts_with('-') ? "./" : "");
    word += name;
    const bool isPlain = TerminalText(word) == word;
    std::string quoted(isPlain ? "'" : "$'");
    for (const char c : word) {
        std::array<char, 5> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x",
                      static_cast<unsigned>(static_cast<unsigned char>(c)));
        const bool isSpecial = c < ' ' || c > '~' || c == '\'' || c == '\\';
        if (isPlain)
            quoted += c == '\'' ? "'\\''" : std::string(1, c);
        else
            quoted += isSpecial ? escape.data() : std::string(1, c);
    }
    return quoted + "'";
}
