#include "desktop/window/link.h"

#include <gio/gunixsocketaddress.h>

#include <stdexcept>
#include <utility>

#include "desktop/profiles.h"

namespace {

constexpr guint kLookSeconds = 1, kSendMs = 100;

// Return what the member holds. Throw if it holds something else.
template <typename Value>
Value Wanted(const std::optional<Value>& value, const char* key) {
    if (!value) throw std::runtime_error(std::string("it has no valid ") + key);
    return *value;
}
std::string TextOf(const JsonValue& object, const char* key) {
    return Wanted(object[key].Text(), key);
}
bool SwitchOf(const JsonValue& object, const char* key) {
    return Wanted(object[key].Switch(), key);
}
double NumberOf(const JsonValue& object, const char* key) {
    return Wanted(object[key].Number(), key);
}

Settings SettingsIn(const JsonValue& profile) {
    std::vector<std::string> ignored;
    return SettingsOfLines(profile["settings"].Texts(), &ignored);
}

}  // namespace

Link::Link(std::string clientSocketPath) : socketPath(std::move(clientSocketPath)) {}

Link::~Link() {
    Watch(false);
    Disconnect();
}

void Link::Listen(std::function<void()> whenState, std::function<void()> whenLevels,
                  std::function<void(const std::string&)> whenRefused) {
    stateChanged = std::move(whenState);
    levelsChanged = std::move(whenLevels);
    refused = std::move(whenRefused);
}

void Link::Watch(bool wanted) {
    if (wanted == isWatching) return;
    isWatching = wanted;
    if (IsConnected()) Ask({{"do", "watch"}, {"on", wanted}});
    if (looking != 0) g_source_remove(std::exchange(looking, 0));
    if (!wanted) return;
    Connect();
    looking = g_timeout_add_seconds(
        kLookSeconds,
        [](gpointer link) -> gboolean {
            static_cast<Link*>(link)->Connect();
            return G_SOURCE_CONTINUE;
        },
        this);
}

void Link::Connect() {
    if (IsConnected()) return;
    const Object<GSocketClient> client(g_socket_client_new());
    const Object<GSocketAddress> address(g_unix_socket_address_new(socketPath.c_str()));
    connection.reset(g_socket_client_connect(client.get(), G_SOCKET_CONNECTABLE(address.get()),
                                             nullptr, nullptr));
    if (!IsConnected()) return;
    reader.reset(
        g_data_input_stream_new(g_io_stream_get_input_stream(G_IO_STREAM(connection.get()))));
    reading.reset(g_cancellable_new());
    ReadLine();
    Ask({{"do", "watch"}});
}

void Link::Disconnect() {
    if (!IsConnected()) return;
    g_cancellable_cancel(reading.get());
    reader.reset();
    connection.reset();
    if (editing != 0) g_source_remove(std::exchange(editing, 0));
    isUnsent = hasMissed = false;
    unanswered = 0;
}

void Link::ReadLine() {
    g_data_input_stream_read_line_async(
        reader.get(), G_PRIORITY_DEFAULT, reading.get(),
        [](GObject* stream, GAsyncResult* result, gpointer data) {
            GError* fault = nullptr;
            char* const line = g_data_input_stream_read_line_finish(G_DATA_INPUT_STREAM(stream),
                                                                    result, nullptr, &fault);
            const bool isCancelled = g_error_matches(fault, G_IO_ERROR, G_IO_ERROR_CANCELLED);
            g_clear_error(&fault);
            if (isCancelled) return;  // the link may be gone
            auto* const link = static_cast<Link*>(data);
            if (line == nullptr) {
                link->Disconnect();
                link->stateChanged();
                return;
            }
            link->TakeLine(line);
            g_free(line);
            if (link->IsConnected()) link->ReadLine();
        },
        this);
}

void Link::TakeLine(const char* line) {
    try {
        const JsonValue object = JsonValue::Parse(line);
        if (!object.IsObject()) throw std::runtime_error("it is no object");
        const std::string event = object["event"].Text().value_or("");
        if (event == "levels") {
            levels = {NumberOf(object, "before_db"), NumberOf(object, "after_db"),
                      NumberOf(object, "gain_db"), SwitchOf(object, "limiting")};
            levelsChanged();
        } else if (event == "state") {
            hasMissed = unanswered > 0 || isUnsent;
            if (hasMissed) return;
            TakeState(object);
            stateChanged();
        } else {
            --unanswered;
            if (!object["ok"].Switch().value_or(true)) {
                hasMissed = true;
                refused(object["error"].Text().value_or(""));
            }
            CatchUp();
        }
    } catch (const std::runtime_error& fault) {
        g_warning("a line of the client can't be read: %s", fault.what());
    }
}

// A state that comes before the answer to a request may be older than the request, so it isn't
// shown. Once everything is answered, this asks for the state anew.
void Link::CatchUp() {
    if (!hasMissed || unanswered > 0 || isUnsent || !isWatching) return;
    hasMissed = false;
    for (const bool on : {false, true}) Ask({{"do", "watch"}, {"on", on}});
}

void Link::TakeState(const JsonValue& event) {
    const JsonValue status = event["status"];
    output = TextOf(status, "output");
    isOn = SwitchOf(status, "on");
    rateHz = NumberOf(status, "rate");
    latencyMs = rateHz > 0 ? 1000 * NumberOf(status, "latency_frames") / rateHz : 0;
    leftOut = status["left_out"].Texts();
    settings = SettingsIn(status);
    players.clear();
    for (const JsonValue& player : status["players"].Elements())
        players.push_back({TextOf(player, "application"), TextOf(player, "title"),
                           SwitchOf(player, "left_out"), SwitchOf(player, "own_target")});
    outputs.clear();
    for (const JsonValue& one : event["outputs"].Elements()) {
        const JsonValue profile = one["profile"];
        const bool has = !profile.IsNull();
        outputs.push_back({TextOf(one, "name"), TextOf(one, "description"),
                           SwitchOf(one, "connected"), SwitchOf(one, "present"), has,
                           !has || SwitchOf(profile, "on"),
                           has ? SettingsIn(profile) : Settings()});
    }
}

void Link::Ask(const JsonValue& request) {
    if (!IsConnected()) return;
    ++unanswered;
    const std::string line = request.OneLineOfAscii() + "\n";
    // If this fails, reading ends too, and with it the connection.
    g_output_stream_write_all(g_io_stream_get_output_stream(G_IO_STREAM(connection.get())),
                              line.data(), line.size(), nullptr, nullptr, nullptr);
}

void Link::Change(const Settings& wanted) {
    if (wanted == settings) return;
    settings = wanted;
    isUnsent = true;
    if (editing == 0) {
        SendSettings();
        editing = g_timeout_add(
            kSendMs,
            [](gpointer data) -> gboolean {
                auto* const link = static_cast<Link*>(data);
                if (link->isUnsent) {
                    link->SendSettings();
                    return G_SOURCE_CONTINUE;
                }
                link->editing = 0;
                return G_SOURCE_REMOVE;
            },
            this);
    }
    stateChanged();
}

void Link::SendSettings() {
    isUnsent = false;
    JsonValue request{{"do", "set"}, {"settings", LinesOf(settings)}};
    if (!output.empty()) request.Add("for", output);
    Ask(request);
}

void Link::SetOn(const std::string& outputName, bool wanted) {
    JsonValue request{{"do", wanted ? "on" : "off"}};
    if (!outputName.empty()) request.Add("for", outputName);
    Ask(request);
}

void Link::SetLeftOut(const std::string& application, bool wanted) {
    Ask({{"do", "leave-out"}, {"application", application}, {"out", wanted}});
}

void Link::SetBypass(bool wanted, double gainDb) {
    Ask({{"do", "bypass"}, {"on", wanted}, {"gain_db", gainDb}});
}

void Link::Quit() {
    Ask({{"do", "quit"}});
}
