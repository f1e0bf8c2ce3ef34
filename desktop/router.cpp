#include "desktop/router.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "desktop/audio_pair.h"

namespace {

constexpr char kNoTarget[] = "-1";  // a listener's "wherever the default is"
constexpr int kFirstWaitMs = 500, kLongestWaitMs = 60'000;

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
               std::function<void()> whenReplaced)
    : changed(std::move(whenChanged)),
      replaced(std::move(whenReplaced)),
      core(serverCore),
      loop(pw_context_get_main_loop(pw_core_get_context(core))),
      waitMs(kFirstWaitMs),
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
    clock = pw_loop_add_timer(
        loop, [](void* router, uint64_t) { static_cast<Router*>(router)->AskAgain(); }, this);
    if (registry == nullptr || clock == nullptr)
        throw std::runtime_error("cannot read the sound server's objects");
    pw_registry_add_listener(registry, &registryListener, &kEvents, this);
    static const pw_core_events kCoreEvents = [] {
        pw_core_events events{};
        events.version = PW_VERSION_CORE_EVENTS;
        events.done = [](void* data, uint32_t, int number) {
            static_cast<Router*>(data)->TakeDone(number);
        };
        return events;
    }();
    pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
    listed = pw_core_sync(core, PW_ID_CORE, 0);
}

Router::~Router() {
    for (const auto& [id, node] : nodes)
        if (node->proxy != nullptr) pw_proxy_destroy(node->proxy);
    DropMetadata();
    pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry));
    spa_hook_remove(&coreListener);
    pw_loop_destroy_source(loop, clock);
}

void Router::Schedule() {
    scheduled = pw_core_sync(core, PW_ID_CORE, 0);
}

void Router::TakeDone(int number) {
    if (number == listed) {
        listed = -1;
    } else if (number == reading) {
        reading = -1;
        targets = std::move(arriving);
        Route();
        changed();
    } else if (number == scheduled) {
        scheduled = -1;
        changed();
        Check();
    }
}

const Router::Target& Router::TargetOf(const Node& node) const {
    static const Target kNone;
    const auto found = targets.find(node.id);
    return found != targets.end() ? found->second : kNone;
}

// Reads the entries if a player isn't where it should be and the session manager hasn't just been
// asked. Waits until our output is linked. We once bound the metadata while a restarted session
// manager was still about to do so. The sound server (PipeWire 0.3.65) then answered no program any
// more. Since we wait, that has not been seen again. The cause isn't known.
void Router::Check() {
    if (metadataId == PW_ID_ANY || reading >= 0 || PresentOutput().empty()) return;
    const bool differs = std::any_of(nodes.begin(), nodes.end(), [this](const auto& entry) {
        const Act act = ActFor(*entry.second);
        return act != Act::kNone && act != entry.second->asked;
    });
    if (differs || metadata == nullptr) ReadEntries();
}

// Binds the metadata anew, because only a new listener is told all entries. The answer comes behind
// them: the sound server takes nothing more from us before the session manager has told them all.
void Router::ReadEntries() {
    DropMetadata();
    arriving.clear();
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
    reading = pw_core_sync(core, PW_ID_CORE, 0);
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
        if (listed < 0) return replaced();
        metadataId = id;
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
        arriving.erase(id);
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
    auto& entries = reading >= 0 ? arriving : targets;
    const bool isAll = key == nullptr;  // everything about the node was erased
    if (isAll || std::strcmp(key, kTargetKey) == 0) entries[subject].object = target;
    if (isAll || std::strcmp(key, "target.node") == 0) entries[subject].node = target;
    if (reading < 0) Schedule();
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

bool Router::IsLinkedTo(const Node& node, const std::string& name) const {
    return std::any_of(links.begin(), links.end(), [&](const auto& link) {
        const auto to = nodes.find(link.second.to);
        return link.second.from == node.id && to != nodes.end() &&
               to->second->Is(PW_KEY_NODE_NAME, name.c_str());
    });
}

// Returns what would bring a player to where it should be. A player that doesn't play to the
// default output isn't routed. The session manager sometimes links a player to the target of an
// earlier day without an entry. The default output is where our own sound is. The entry
// `default.audio.sink` would tell it as well, but its change can be hidden from us.
Router::Act Router::ActFor(const Node& node) const {
    if (!IsPlayer(node) || !node.isKnown) return Act::kNone;
    const bool isOwn = HasOwnTarget(node), isLinked = IsLinkedTo(node, kInputName);
    if (isOn && !isOwn && !IsLeftOut(node)) {
        const std::string output = PresentOutput();
        const bool playsToDefault = !output.empty() && IsLinkedTo(node, output);
        return !isLinked && playsToDefault ? Act::kRoute : Act::kNone;
    }
    const bool isRouted = !isOwn && (isLinked || node.asked == Act::kRoute);
    return isRouted || TargetOf(node).IsOurs() ? Act::kGiveBack : Act::kNone;
}

void Router::Route() {
    if (metadata == nullptr) return;
    bool waits = false;
    for (const auto& [id, node] : nodes) {
        const Act act = ActFor(*node);
        if (act == Act::kNone || act == node->asked) continue;
        if (act != node->unmet) waitMs = kFirstWaitMs;
        node->asked = node->unmet = act;
        Write(*node, act == Act::kRoute);
        waits = true;
    }
    if (!waits) return;
    timespec first{waitMs / 1000, waitMs % 1000 * 1'000'000L};
    pw_loop_update_timer(loop, clock, &first, nullptr, false);
}

// Asks again for players that are not where they were asked to be, less and less often until
// something else is asked.
void Router::AskAgain() {
    bool differs = false;
    for (const auto& [id, node] : nodes) {
        const Act act = ActFor(*node);
        node->asked = Act::kNone;
        if (act == Act::kNone) node->unmet = Act::kNone;
        differs = differs || act != Act::kNone;
    }
    waitMs = differs ? std::min(2 * waitMs, kLongestWaitMs) : kFirstWaitMs;
    Check();
}

// The target is a name, because a serial number would be saved by the session manager as the
// listener's choice. An entry that is as it should be and isn't followed is changed to and fro,
// because only a change is told.
void Router::Write(const Node& node, bool routed) {
    const auto write = [&](bool isOurs) {
        pw_metadata_set_property(reinterpret_cast<pw_metadata*>(metadata), node.id, kTargetKey,
                                 isOurs ? "Spa:String" : nullptr, isOurs ? kInputName : nullptr);
    };
    if (TargetOf(node).IsOurs() == routed) write(!routed);
    write(routed);
}

void Router::SetOn(bool wanted) {
    if (isOn == wanted) return;
    isOn = wanted;
    Check();
}

void Router::GiveAllBack() {
    isOn = false;
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
                           node->Get(PW_KEY_MEDIA_NAME), IsLinkedTo(*node, kInputName),
                           IsLeftOut(*node), HasOwnTarget(*node)});
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
