// Follows what the sound server holds, and decides which players pass through Orvane.
//
// A player is routed by the metadata entry `target.object` of its node, which names our input. The
// session manager then links it there. A player is left alone if its listener left it out, or if it
// refuses to be moved. So is one with a target of its own, from its properties or from the
// listener. A player is routed only while it plays to the default output, and after the session
// manager has told its entries. Otherwise the manager would take our entry for the listener's, and
// save it over the listener's own.
//
// The sound server (PipeWire 0.3.65) hides changes of entries from us while another program begins
// to read them. It never hides links. So a player counts as routed when it is linked to our input,
// and all entries are read anew before one is changed. An entry that isn't followed is written
// again.
//
// Thread: the loop's thread.
#pragma once
#include <pipewire/extensions/metadata.h>
#include <pipewire/pipewire.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

constexpr char kTargetKey[] = "target.object";  // of an entry that tells where a node should play

struct OutputDevice {
    std::string name;         // `node.name`, the same after it was unplugged and plugged in again
    std::string description;  // for a listener
};

struct Player {
    uint32_t id;  // of its node, until it ends
    std::string application, title;
    bool isRouted, isLeftOut, hasOwnTarget;
};

class Router {
public:
    // whenChanged: called when outputs, players or the present output have changed. whenReplaced:
    // called when a session manager has started later than this router. The router doesn't serve
    // it, and must be made again outside of the call.
    Router(pw_core* serverCore, std::function<void()> whenChanged,
           std::function<void()> whenReplaced);
    ~Router();
    Router(const Router&) = delete;
    Router& operator=(const Router&) = delete;

    // Routes all players that may be routed, or gives all back.
    void SetOn(bool wanted);
    // Gives all players back without waiting for an answer of the sound server.
    void GiveAllBack();
    // names: of applications, in any case of letters.
    void LeaveOut(const std::set<std::string>& names);

    std::vector<OutputDevice> Outputs() const;
    std::vector<Player> Players() const;
    // Returns the name of the output that our sound goes to; "" if there is none.
    std::string PresentOutput() const;

private:
    enum class Act { kNone, kRoute, kGiveBack };
    struct Node {
        Router* router = nullptr;
        uint32_t id = 0;
        pw_proxy* proxy = nullptr;  // of a player: its properties come by an event
        spa_hook listener{};
        std::map<std::string, std::string> properties;
        bool isKnown = false;    // the properties have come
        Act asked = Act::kNone;  // what was asked of the session manager last, for a while
        Act unmet = Act::kNone;  // the same, until the session manager has followed
        const std::string& Get(const char* key) const;
        bool Is(const char* key, const char* value) const { return Get(key) == value; }
    };
    struct Link {
        uint32_t from, to;
    };
    struct Target {  // of a node, as the metadata has it; "" if there is none
        std::string object, node;
        bool IsOurs() const;
    };

    void Add(uint32_t id, const char* type, const spa_dict* properties);
    void Remove(uint32_t id);
    void TakeProperties(Node* node, const spa_dict* properties);
    int TakeMetadata(uint32_t subject, const char* key, const char* value);
    bool IsPlayer(const Node& node) const;
    bool IsLeftOut(const Node& node) const;
    bool HasOwnTarget(const Node& node) const;
    const Target& TargetOf(const Node& node) const;
    bool IsLinkedTo(const Node& node, const std::string& name) const;
    Act ActFor(const Node& node) const;
    void Schedule();
    void TakeDone(int number);
    void Check();
    void ReadEntries();
    void Route();
    void AskAgain();
    void Write(const Node& node, bool routed);
    void DropMetadata();

    std::function<void()> changed, replaced;
    pw_core* core;
    spa_hook coreListener{};
    int listed = -1, scheduled = -1, reading = -1;  // numbers of answers that are waited for
    pw_loop* loop;
    spa_source* clock = nullptr;  // runs while we wait for the session manager to follow
    int waitMs;
    pw_registry* registry;
    spa_hook registryListener{};
    pw_proxy* metadata = nullptr;
    uint32_t metadataId = PW_ID_ANY;
    spa_hook metadataListener{};
    std::map<uint32_t, std::unique_ptr<Node>> nodes;
    std::map<uint32_t, Link> links;
    std::map<uint32_t, Target> targets, arriving;  // also of nodes that come later
    std::set<std::string> leftOut;
    bool isOn = false;
};
