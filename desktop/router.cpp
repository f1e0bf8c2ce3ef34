#include "desktop/router.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "desktop/audio_pair.h"

namespace {

constexpr char kTargetKey[] = "target.object";
constexpr char kSettledKey[] = "orvane.settled";  // of our own node: goes with it
constexpr char kNoTarget[] = "-1";                // a listener's "wherever the default is"

uint32_t NumberOf(const spa_dict* properties, const char* key) {
    const char* const text = spa_dict_lookup(properties, key);
    return text != nullptr ? static_cast<uint32_t>(std::strtoul(text, nullptr, 10)) : PW_ID_ANY;
}

}  // namespace

const std::string& Router::Node::Get(const char* key) const {
    static const std::string kNothing;
    const auto found = properties.find(key);
    return found != properties.end() ? found->second : kNothing;
}

bool Router::Target::IsOurs() const {
    return object == kInputName;
}

Router::Router(pw_core* serverCore, std::function<void()> whenChanged,
               std::function<void()> whenBack)
    : changed(std::move(whenChanged)),
      managerIsBack(std::move(whenBack)),
      core(serverCore),
      registry(pw_core_get_registry(core, PW_VERSION_REGISTRY, 0)) {
    static const pw_registry_events kEvents = [] {
        pw_registry_events events{};
        events.version = PW_VERSION_REGISTRY_EVENTS;
        events.global = [](void* router, uint32_t id, uint32_t, const char* type, uint32_t,
                           const spa_dict* properties) {
            static_cast<Router*>(router)->Add(id, type, properties);
        };
        events.global_remove = [](void* router, uint32_t id) {
            static_cast<Router*>(router)->Remove(id);
        };
        return events;
    }();
    if (registry == nullptr) throw std::runtime_error("cannot read the sound server's objects");
    pw_registry_add_listener(registry, &registryListener, &kEvents, this);
    static const pw_core_events kCoreEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.done = [](void* data, uint32_t, int number) {
            auto* const router = static_cast<Router*>(data);
            if (number != router->scheduled) return;
            router->scheduled = -1;
            router->changed();
        };
        return events;
    }();
    pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
}

Router::~Router() {
    for (const auto& [id, node] : nodes)
        if (node->proxy != nullptr) pw_proxy_destroy(node->proxy);
    DropMetadata();
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    spa_hook_remove(&coreListener);
}

// Routes once the session manager has told everything that it knows now. It hands its entries on
// through another connection than its links, so that a link can be seen before the entry which it
// follows. An entry of our own comes back behind all of them.
void Router::Schedule() {
    const auto own = std::find_if(nodes.begin(), nodes.end(), [](const auto& node) {
        return node.second->Is(PW_KEY_NODE_NAME, kOutputName);
    });
    if (metadata != nullptr && own != nodes.end())
        pw_metadata_set_property(reinterpret_cast<pw_metadata*>(metadata), own->first, kSettledKey,
                                 "Spa:Int", std::to_string(++asked).c_str());
    else
        scheduled = pw_core_sync(core, PW_ID_CORE, 0);
}

const Router::Target& Router::TargetOf(const Node& node) const {
    static const Target kNone;
    const auto found = targets.find(node.id);
    return found != targets.end() ? found->second : kNone;
}

// Must not be called before the session manager has linked something. With PipeWire 0.3.65 the
// sound server was seen to answer no program any more if we bound the metadata while a restarted
// session manager was still about to do so. Since we wait, that has not been seen again. The cause
// isn't known.
void Router::BindMetadata() {
    if (metadata != nullptr || metadataId == PW_ID_ANY) return;
    static const pw_metadata_events kEvents = [] {
        pw_metadata_events events{};
        events.version = PW_VERSION_METADATA_EVENTS;
        events.property = [](void* router, uint32_t subject, const char* key, const char*,
                             const char* value) {
            return static_cast<Router*>(router)->TakeMetadata(subject, key, value);
        };
        return events;
    }();
    metadata = static_cast<pw_proxy*>(
        pw_registry_bind(registry, metadataId, PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0));
    if (metadata != nullptr)
        pw_proxy_add_object_listener(metadata, &metadataListener, &kEvents, this);
}

void Router::DropMetadata() {
    if (metadata != nullptr) pw_proxy_destroy(metadata);
    metadata = nullptr;
}

void Router::Add(uint32_t id, const char* type, const spa_dict* properties) {
    if (properties == nullptr) return;
    if (std::strcmp(type, PW_TYPE_INTERFACE_Link) == 0) {
        links[id] = {NumberOf(properties, PW_KEY_LINK_OUTPUT_NODE),
                     NumberOf(properties, PW_KEY_LINK_INPUT_NODE)};
        const auto from = nodes.find(links[id].from);
        if (from != nodes.end() && from->second->Is(PW_KEY_NODE_NAME, kOutputName)) BindMetadata();
    } else if (std::strcmp(type, PW_TYPE_INTERFACE_Node) == 0) {
        auto& node = nodes[id] = std::make_unique<Node>();
        node->router = this;
        node->id = id;
        TakeProperties(node.get(), properties);
        node->isKnown = !IsPlayer(*node);
        if (!node->isKnown) {  // the registry tells neither a target nor "dont-reconnect"
            static const pw_node_events kEvents = [] {
                pw_node_events events{};
                events.version = PW_VERSION_NODE_EVENTS;
                events.info = [](void* data, const pw_node_info* info) {
                    auto* const self = static_cast<Node*>(data);
                    if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) == 0) return;
                    self->isKnown = true;
                    self->router->TakeProperties(self, info->props);
                    self->router->Schedule();
                };
                return events;
            }();
            node->proxy =
                static_cast<pw_proxy*>(pw_registry_bind(registry, id, type, PW_VERSION_NODE, 0));
            if (node->proxy != nullptr)
                pw_proxy_add_object_listener(node->proxy, &node->listener, &kEvents, node.get());
        }
    } else if (std::strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0 && metadataId == PW_ID_ANY) {
        const char* const name = spa_dict_lookup(properties, PW_KEY_METADATA_NAME);
        if (name == nullptr || std::strcmp(name, "default") != 0) return;
        metadataId = id;
        if (hadManager) managerIsBack();
        hadManager = true;
    } else {
        return;
    }
    Schedule();
}

void Router::Remove(uint32_t id) {
    if (const auto node = nodes.find(id); node != nodes.end()) {
        if (node->second->proxy != nullptr) pw_proxy_destroy(node->second->proxy);
        nodes.erase(node);
        targets.erase(id);
    } else if (id == metadataId) {
        // The session manager has ended, and with it all that it knew.
        DropMetadata();
        metadataId = PW_ID_ANY;
        targets.clear();
    } else if (links.erase(id) == 0) {
        return;
    }
    Schedule();
}

void Router::TakeProperties(Node* node, const spa_dict* properties) {
    const spa_dict_item* item = nullptr;
    spa_dict_for_each(item, properties) node->properties[item->key] = item->value;
}

int Router::TakeMetadata(uint32_t subject, const char* key, const char* value) {
    const std::string target = value != nullptr && std::strcmp(value, kNoTarget) != 0 ? value : "";
    if (key != nullptr && std::strcmp(key, kSettledKey) == 0) {
        if (target != std::to_string(asked)) return 0;
        Route();
        changed();
        return 0;
    }
    const bool isAll = key == nullptr;  // everything about the node was erased
    if (isAll || std::strcmp(key, kTargetKey) == 0) targets[subject].object = target;
    if (isAll || std::strcmp(key, "target.node") == 0) targets[subject].node = target;
    Schedule();
    return 0;
}

bool Router::IsPlayer(const Node& node) const {
    return node.Is(PW_KEY_MEDIA_CLASS, "Stream/Output/Audio") &&
           !node.Is(PW_KEY_NODE_NAME, kOutputName);
}

bool Router::IsLeftOut(const Node& node) const {
    return std::any_of(leftOut.begin(), leftOut.end(), [&](const std::string& name) {
        return strcasecmp(node.Get(PW_KEY_APP_NAME).c_str(), name.c_str()) == 0 ||
               strcasecmp(node.Get(PW_KEY_APP_PROCESS_BINARY).c_str(), name.c_str()) == 0 ||
               strcasecmp(node.Get(PW_KEY_NODE_NAME).c_str(), name.c_str()) == 0;
    });
}

bool Router::HasOwnTarget(const Node& node) const {
    const Target& target = TargetOf(node);
    return !(target.object.empty() || target.IsOurs()) || !target.node.empty() ||
           !node.Get(kTargetKey).empty() || !node.Get("node.target").empty() ||
           spa_atob(node.Get("node.dont-reconnect").c_str());
}

// The session manager sometimes links a player to the target of an earlier day without an entry.
// The default output is where our own sound is. The entry `default.audio.sink` would tell it as
// well, but its event has been seen to be missing after a restart of the session manager.
bool Router::PlaysToDefault(const Node& node) const {
    const std::string output = PresentOutput();
    return !output.empty() && std::any_of(links.begin(), links.end(), [&](const auto& link) {
        const auto to = nodes.find(link.second.to);
        return link.second.from == node.id && to != nodes.end() &&
               to->second->Is(PW_KEY_NODE_NAME, output.c_str());
    });
}

void Router::Route() {
    if (metadata == nullptr) return;
    for (const auto& [id, node] : nodes) {
        if (!IsPlayer(*node) || !node->isKnown) continue;
        const bool isOurs = TargetOf(*node).IsOurs();
        const bool mayBe = isOn && !IsLeftOut(*node) && !HasOwnTarget(*node);
        if (mayBe == isOurs || (mayBe && !PlaysToDefault(*node))) continue;
        targets[id].object = mayBe ? kInputName : "";
        // By name: a serial number would be saved by the session manager as the listener's choice.
        pw_metadata_set_property(reinterpret_cast<pw_metadata*>(metadata), id, kTargetKey,
                                 mayBe ? "Spa:String" : nullptr, mayBe ? kInputName : nullptr);
    }
}

void Router::SetOn(bool wanted) {
    if (isOn == wanted) return;
    isOn = wanted;
    Route();
}

void Router::LeaveOut(const std::set<std::string>& names) {
    leftOut = names;
    Schedule();
}

std::vector<OutputDevice> Router::Outputs() const {
    std::vector<OutputDevice> outputs;
    for (const auto& [id, node] : nodes)
        if (node->Is(PW_KEY_MEDIA_CLASS, "Audio/Sink"))
            outputs.push_back({node->Get(PW_KEY_NODE_NAME), node->Get(PW_KEY_NODE_DESCRIPTION)});
    return outputs;
}

std::vector<Player> Router::Players() const {
    std::vector<Player> players;
    for (const auto& [id, node] : nodes) {
        if (!IsPlayer(*node)) continue;
        const std::string& application = node->Get(PW_KEY_APP_NAME);
        players.push_back({id, application.empty() ? node->Get(PW_KEY_NODE_NAME) : application,
                           node->Get(PW_KEY_MEDIA_NAME), TargetOf(*node).IsOurs(), IsLeftOut(*node),
                           HasOwnTarget(*node)});
    }
    return players;
}

std::string Router::PresentOutput() const {
    for (const auto& [number, link] : links) {
        const auto from = nodes.find(link.from), to = nodes.find(link.to);
        if (from != nodes.end() && to != nodes.end() &&
            from->second->Is(PW_KEY_NODE_NAME, kOutputName))
            return to->second->Get(PW_KEY_NODE_NAME);
    }
    return "";
}
