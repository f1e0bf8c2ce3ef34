#include "desktop/window/link.h"

#include <gio/gunixsocketaddress.h>

#include <nlohmann/json.hpp>
#include <utility>

#include "desktop/profiles.h"

using nlohmann::ordered_json;

namespace {

constexpr guint kLookSeconds = 1, kSendMs = 100;

std::vector<std::string> TextsOf(const ordered_json& list) {
    std::vector<std::string> texts;
    for (const ordered_json& text : list)
        if (text.is_string()) texts.push_back(text.get<std::string>());
    return texts;
}

Settings SettingsIn(const ordered_json& profile) {
    std::vector<std::string> ignored;
    return SettingsOfLines(TextsOf(profile.at("settings")), &ignored);
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
        const ordered_json object = ordered_json::parse(line);
        const std::string event = object.value("event", "");
        if (event == "levels") {
            levels = {object.at("before_db"), object.at("after_db"), object.at("gain_db"),
                      object.at("limiting")};
            levelsChanged();
        } else if (event == "state") {
            hasMissed = unanswered > 0 || isUnsent;
            if (hasMissed) return;
            TakeState(object);
            stateChanged();
        } else {
            --unanswered;
            if (!object.value("ok", true)) {
                hasMissed = true;
                refused(object.value("error", ""));
            }
            CatchUp();
        }
    } catch (const ordered_json::exception& fault) {
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

void Link::TakeState(const ordered_json& event) {
    const ordered_json& status = event.at("status");
    output = status.at("output");
    isOn = status.at("on");
    rateHz = status.at("rate");
    latencyMs = rateHz > 0 ? 1000 * status.at("latency_frames").get<double>() / rateHz : 0;
    leftOut = TextsOf(status.at("left_out"));
    settings = SettingsIn(status);
    players.clear();
    for (const ordered_json& player : status.at("players"))
        players.push_back({player.at("application"), player.at("title"), player.at("left_out"),
                           player.at("own_target")});
    outputs.clear();
    for (const ordered_json& one : event.at("outputs")) {
        const ordered_json& profile = one.at("profile");
        const bool has = !profile.is_null();
        outputs.push_back({one.at("name"), one.at("description"), one.at("connected"),
                           one.at("present"), has, !has || profile.at("on").get<bool>(),
                           has ? SettingsIn(profile) : Settings()});
    }
}

void Link::Ask(const ordered_json& request) {
    if (!IsConnected()) return;
    ++unanswered;
    const std::string line =
        request.dump(-1, ' ', true, ordered_json::error_handler_t::replace) + "\n";
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
    ordered_json request{{"do", "set"}, {"settings", LinesOf(settings)}};
    if (!output.empty()) request["for"] = output;
    Ask(request);
}

void Link::SetOn(const std::string& outputName, bool wanted) {
    ordered_json request{{"do", wanted ? "on" : "off"}};
    if (!outputName.empty()) request["for"] = outputName;
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
