#include "render/json.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

JsonObject::JsonObject() : members(std::make_unique<ordered_json>(ordered_json::object())) {}

JsonObject::~JsonObject() = default;

JsonObject& JsonObject::Add(const std::string& key, bool value) {
    (*members)[key] = value;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, uint32_t value) {
    (*members)[key] = value;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, uint64_t value) {
    (*members)[key] = value;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, double value) {
    (*members)[key] = value;  // written as null if it is not finite
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, const char* text) {
    (*members)[key] = text;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, const std::string& text) {
    (*members)[key] = text;
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, std::span<const double> array) {
    (*members)[key] = ordered_json(array);
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, std::span<const std::string> array) {
    (*members)[key] = ordered_json(array);
    return *this;
}

JsonObject& JsonObject::Add(const std::string& key, const JsonObject& object) {
    (*members)[key] = *object.members;
    return *this;
}

JsonObject& JsonObject::Append(const std::string& key, const JsonObject& object) {
    (*members)[key].push_back(*object.members);
    return *this;
}

JsonObject& JsonObject::AddNull(const std::string& key) {
    (*members)[key] = nullptr;
    return *this;
}

std::string JsonObject::Lines() const {
    // File names may contain bytes that are not UTF-8, so they are replaced.
    return members->dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

std::string JsonObject::OneLine() const {
    return members->dump(-1, ' ', true, ordered_json::error_handler_t::replace);
}
