#include "client/json.h"

#include <nlohmann/json.hpp>

using nlohmann::ordered_json;

namespace {

template <typename Value>
std::shared_ptr<ordered_json> TreeOf(const Value& value) {
    return std::make_shared<ordered_json>(value);
}

// Names of files and texts of other programs may contain bytes that are not UTF-8.
std::string Written(const ordered_json& tree, int indent, bool onlyAscii) {
    return tree.dump(indent, ' ', onlyAscii, ordered_json::error_handler_t::replace);
}

}  // namespace

JsonValue::JsonValue() : tree(TreeOf(ordered_json::object())) {}
JsonValue::JsonValue(std::nullptr_t) : tree(TreeOf(nullptr)) {}
JsonValue::JsonValue(bool value) : tree(TreeOf(value)) {}
JsonValue::JsonValue(uint32_t value) : tree(TreeOf(value)) {}
JsonValue::JsonValue(uint64_t value) : tree(TreeOf(value)) {}
JsonValue::JsonValue(double value) : tree(TreeOf(value)) {}
JsonValue::JsonValue(const char* text) : tree(TreeOf(std::string(text))) {}
JsonValue::JsonValue(const std::string& text) : tree(TreeOf(text)) {}
JsonValue::JsonValue(std::span<const double> array) : tree(TreeOf(array)) {}
JsonValue::JsonValue(const std::vector<std::string>& array) : tree(TreeOf(array)) {}

JsonValue::JsonValue(const std::vector<JsonValue>& array) : tree(TreeOf(ordered_json::array())) {
    for (const JsonValue& element : array) tree->push_back(*element.tree);
}

JsonValue::JsonValue(std::initializer_list<Member> members) : JsonValue() {
    for (const Member& member : members) Add(member.key, member.value);
}

JsonValue JsonValue::Parse(const std::string& text) {
    ordered_json read = ordered_json::parse(text, nullptr, false);
    if (read.is_discarded()) read = nullptr;
    return JsonValue(std::make_shared<Tree>(std::move(read)));
}

JsonValue& JsonValue::Add(const std::string& key, const JsonValue& member) {
    if (tree.use_count() > 1) tree = TreeOf(*tree);
    (*tree)[key] = *member.tree;
    return *this;
}

JsonValue& JsonValue::AddAll(const JsonValue& object) {
    for (const auto& [key, value] : object.Members()) Add(key, value);
    return *this;
}

bool JsonValue::IsObject() const {
    return tree->is_object();
}
bool JsonValue::IsArray() const {
    return tree->is_array();
}
bool JsonValue::IsNull() const {
    return tree->is_null();
}

std::optional<bool> JsonValue::Switch() const {
    return tree->is_boolean() ? std::optional(tree->get<bool>()) : std::nullopt;
}
std::optional<double> JsonValue::Number() const {
    return tree->is_number() ? std::optional(tree->get<double>()) : std::nullopt;
}
std::optional<std::string> JsonValue::Text() const {
    return tree->is_string() ? std::optional(tree->get<std::string>()) : std::nullopt;
}

bool JsonValue::Has(const std::string& key) const {
    return tree->contains(key);
}

JsonValue JsonValue::operator[](const std::string& key) const {
    const auto found = tree->find(key);
    return found != tree->end() ? JsonValue(std::shared_ptr<Tree>(tree, &*found)) : nullptr;
}

std::vector<std::pair<std::string, JsonValue>> JsonValue::Members() const {
    std::vector<std::pair<std::string, JsonValue>> members;
    if (IsObject())
        for (const auto& [key, value] : tree->items())
            members.emplace_back(key, JsonValue(std::shared_ptr<Tree>(tree, &value)));
    return members;
}

std::vector<JsonValue> JsonValue::Elements() const {
    std::vector<JsonValue> elements;
    if (IsArray())
        for (Tree& element : *tree)
            elements.push_back(JsonValue(std::shared_ptr<Tree>(tree, &element)));
    return elements;
}

std::vector<std::string> JsonValue::Texts() const {
    std::vector<std::string> texts;
    for (const JsonValue& element : Elements())
        if (auto text = element.Text()) texts.push_back(std::move(*text));
    return texts;
}

std::string JsonValue::Lines() const {
    return Written(*tree, 2, false) + "\n";
}
std::string JsonValue::OneLine() const {
    return Written(*tree, -1, false);
}
std::string JsonValue::OneLineOfAscii() const {
    return Written(*tree, -1, true);
}
