// The window's view of the running client. A Link connects to the client's socket as soon as there
// is one, keeps what the client tells, and sends what the listener changes.
//
// Thread: the program's first. Only its main loop calls the functions given here.
#pragma once
#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "client/json.h"
#include "client/settings.h"

template <typename Type>
struct Unref {
    void operator()(Type* object) const { g_object_unref(object); }
};
template <typename Type>
using Object = std::unique_ptr<Type, Unref<Type>>;

struct OutputView {
    std::string name, description;  // description: "" for an output that isn't connected
    bool isConnected, isPresent, hasProfile, isOn;
    Settings settings;
};

struct PlayerView {
    std::string application, title;
    bool isLeftOut, hasOwnTarget;
};

struct LevelsView {  // in dB relative to full scale
    double beforeDb = -100, afterDb = -100, gainDb = 0;
    bool isLimiting = false;
};

class Link {
public:
    explicit Link(std::string clientSocketPath);
    ~Link();
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // `whenState`: what the functions below return has changed. `whenLevels`: about ten times a
    // second. `whenRefused`: the client has refused a request, with its reason.
    void Listen(std::function<void()> whenState, std::function<void()> whenLevels,
                std::function<void(const std::string&)> whenRefused);

    // A window that isn't seen doesn't watch. It then gets no events, and looks for no client.
    void Watch(bool wanted);

    bool IsConnected() const { return connection != nullptr; }
    // Returns the name of the present output; "" if there is none.
    const std::string& Output() const { return output; }
    bool IsOn() const { return isOn; }
    double RateHz() const { return rateHz; }
    double LatencyMs() const { return latencyMs; }
    // The settings of the present output, with all that was changed here.
    const Settings& Present() const { return settings; }
    const std::vector<OutputView>& Outputs() const { return outputs; }
    const std::vector<PlayerView>& Players() const { return players; }
    // Applications that are left out, whether they play or not.
    const std::vector<std::string>& LeftOut() const { return leftOut; }
    const LevelsView& Levels() const { return levels; }

    // Shows new settings at once and sends them, at most ten times a second.
    void Change(const Settings& wanted);
    void SetOn(const std::string& outputName, bool wanted);
    void SetLeftOut(const std::string& application, bool wanted);
    // gainDb: of the input, which is heard instead of the result.
    void SetBypass(bool wanted, double gainDb);
    void Quit();

private:
    void Connect();
    void Disconnect();
    void ReadLine();
    void TakeLine(const char* line);
    void TakeState(const JsonValue& event);
    void CatchUp();
    void Ask(const JsonValue& request);
    void SendSettings();

    std::string socketPath;
    std::function<void()> stateChanged, levelsChanged;
    std::function<void(const std::string&)> refused;
    Object<GSocketConnection> connection;
    Object<GDataInputStream> reader;
    Object<GCancellable> reading;
    bool isWatching = false;
    guint looking = 0;  // the timer that looks for a client

    std::string output;
    bool isOn = false;
    double rateHz = 0, latencyMs = 0;
    Settings settings;
    std::vector<OutputView> outputs;
    std::vector<PlayerView> players;
    std::vector<std::string> leftOut;
    LevelsView levels;

    guint editing = 0;  // the timer that sends changes
    bool isUnsent = false, hasMissed = false;
    int unanswered = 0;
};
