// Objects in JSON. Only json.cpp includes the library that writes them, nlohmann_json: its header
// takes seconds to compile.
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

    // Adds a member after those already there. A number that is not finite becomes null.
    JsonObject& Add(const std::string& key, bool value);
    JsonObject& Add(const std::string& key, uint32_t value);
    JsonObject& Add(const std::string& key, uint64_t value);
    JsonObject& Add(const std::string& key, double value);
    JsonObject& Add(const std::string& key, const char* text);
    JsonObject& Add(const std::string& key, const std::string& text);
    JsonObject& Add(const std::string& key, std::span<const double> array);
    JsonObject& Add(const std::string& key, std::span<const std::string> array);
    JsonObject& Add(const std::string& key, const JsonObject& object);
    // Adds the object to the array that the member is, or begins with it.
    JsonObject& Append(const std::string& key, const JsonObject& object);
    JsonObject& AddNull(const std::string& key);
    template <typename Value>
    JsonObject& Add(const std::string& key, const std::optional<Value>& value) {
        return value ? Add(key, *value) : AddNull(key);
    }

    // The object on indented lines, with a line end. Bytes that are not UTF-8 are replaced.
    std::string Lines() const;
    // The object on one line without a line end, in ASCII.
    std::string OneLine() const;

private:
    std::unique_ptr<nlohmann::ordered_json> members;
};
