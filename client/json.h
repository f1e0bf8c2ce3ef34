// JSON values, read and written with nlohmann_json. Only json.cpp includes the full header of that
// library, which takes seconds to compile.
#pragma once
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

class JsonValue {
public:
    struct Member;

    JsonValue();  // an object without members
    JsonValue(std::nullptr_t);
    JsonValue(bool value);
    JsonValue(uint32_t value);
    JsonValue(uint64_t value);
    JsonValue(double value);  // null if it is not finite
    JsonValue(const char* text);
    JsonValue(const std::string& text);
    JsonValue(std::span<const double> array);
    JsonValue(const std::vector<std::string>& array);
    JsonValue(const std::vector<JsonValue>& array);
    JsonValue(std::initializer_list<Member> members);  // an object
    // Returns null if the text isn't JSON.
    static JsonValue Parse(const std::string& text);

    // Adds a member to an object after the present ones, or replaces its value.
    JsonValue& Add(const std::string& key, const JsonValue& member);
    template <typename Value>
    JsonValue& Add(const std::string& key, const std::optional<Value>& member) {
        return Add(key, member ? JsonValue(*member) : JsonValue(nullptr));
    }
    // Adds all members of an object to this one.
    JsonValue& AddAll(const JsonValue& object);

    bool IsObject() const;
    bool IsArray() const;
    bool IsNull() const;
    // A value of another kind is none of these.
    std::optional<bool> Switch() const;
    std::optional<double> Number() const;
    std::optional<std::string> Text() const;
    bool Has(const std::string& key) const;
    // Returns null if there is no such member.
    JsonValue operator[](const std::string& key) const;
    std::vector<std::pair<std::string, JsonValue>> Members() const;  // of an object, else none
    std::vector<JsonValue> Elements() const;                         // of an array, else none
    std::vector<std::string> Texts() const;                          // the elements that are texts

    // Return the value as indented lines with a line end, and on one line without. Bytes that are
    // not UTF-8 become the replacement character.
    std::string Lines() const;
    std::string OneLine() const;
    std::string OneLineOfAscii() const;

private:
    using Tree = nlohmann::ordered_json;
    explicit JsonValue(std::shared_ptr<Tree> wanted) : tree(std::move(wanted)) {}

    // A member or an element shares its parent's tree. What is shared isn't changed any more.
    std::shared_ptr<Tree> tree;
};

struct JsonValue::Member {
    const char* key;
    JsonValue value;
};
