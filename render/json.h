// Writes JSON objects with nlohmann_json. Only json.cpp includes the full header of that library,
// which takes seconds to compile.
#pragma once
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <span>
#include <string>

class JsonObject {
public:
    JsonObject();
    ~JsonObject();
    JsonObject(const JsonObject&) = delete;
    JsonObject& operator=(const JsonObject&) = delete;

    // Adds a member after the present ones. A number that is not finite becomes null.
    JsonObject& Add(const std::string& key, bool value);
    JsonObject& Add(const std::string& key, uint32_t value);
    JsonObject& Add(const std::string& key, uint64_t value);
    JsonObject& Add(const std::string& key, double value);
    JsonObject& Add(const std::string& key, const char* text);
    JsonObject& Add(const std::string& key, const std::string& text);
    JsonObject& Add(const std::string& key, std::span<const double> array);
    JsonObject& Add(const std::string& key, std::span<const std::string> array);
    JsonObject& Add(const std::string& key, const JsonObject& object);
    // Appends the object to the member `key`, which is an array. Creates the array if needed.
    JsonObject& Append(const std::string& key, const JsonObject& object);
    JsonObject& AddNull(const std::string& key);
    template <typename Value>
    JsonObject& Add(const std::string& key, const std::optional<Value>& value) {
        return value ? Add(key, *value) : AddNull(key);
    }

    // Returns the object as indented lines with a line end. Bytes that are not UTF-8 become the
    // replacement character.
    std::string Lines() const;
    // Returns the object in ASCII, on one line without a line end.
    std::string OneLine() const;

private:
    std::unique_ptr<nlohmann::ordered_json> members;
};
