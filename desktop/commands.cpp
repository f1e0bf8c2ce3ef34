#include "desktop/commands.h"

#include <fmt/core.h>

#include <cmath>
#include <stdexcept>

#include "client/json.h"
#include "client/settings_text.h"

namespace {

constexpr double kMostGainDb = 40;

// Says what is wrong with a request. The program that sent it gets the text as the answer's error.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string TextOf(const JsonValue& request, const char* key, const char* otherwise = nullptr) {
    if (!request.Has(key) && otherwise != nullptr) return otherwise;
    const std::optional<std::string> text = request[key].Text();
    if (!text) throw Refusal(fmt::format("\"{}\" must be a text", key));
    return *text;
}

bool SwitchOf(const JsonValue& request, const char* key, bool otherwise) {
    if (!request.Has(key)) return otherwise;
    const std::optional<bool> value = request[key].Switch();
    if (!value) throw Refusal(fmt::format("\"{}\" must be true or false", key));
    return *value;
}

double NumberOf(const JsonValue& request, const char* key, double otherwise, double most) {
    if (!request.Has(key)) return otherwise;
    const double number = request[key].Number().value_or(NAN);
    if (!(number >= -most && number <= most))
        throw Refusal(fmt::format("\"{}\" must be a number from -{} to {}", key, most, most));
    return number;
}

// Returns the settings that a request has, or `otherwise`. Lines that can't be read add a warning.
Settings SettingsIn(const JsonValue& request, const Settings& otherwise,
                    std::vector<std::string>* warnings) {
    if (!request.Has("settings")) return otherwise;
    const JsonValue lines = request["settings"];
    if (!lines.IsArray()) throw Refusal("\"settings\" must be a list of lines");
    const std::vector<std::string> texts = lines.Texts();
    if (texts.size() != lines.Elements().size()) throw Refusal("\"settings\" must hold texts");
    return SettingsOfLines(texts, warnings);
}

JsonValue ToJson(const Profile& profile) {
    return {{"on", profile.isOn},
            {"settings", LinesOf(profile.settings)},
            {"text", Describe(profile.settings)}};
}

JsonValue ToJson(const LiveStream::Levels& levels) {
    return {{"before_db", levels.sourceDb},
            {"after_db", levels.resultDb},
            {"gain_db", levels.gainDb},
            {"limiting", levels.limiting}};
}

JsonValue Status(const Profiles& profiles, const RunningClient* client) {
    const std::string output = client != nullptr ? client->PresentOutput() : "";
    const std::vector<std::string> leftOut(profiles.LeftOut().begin(), profiles.LeftOut().end());
    JsonValue answer{{"running", client != nullptr},
                     {"left_out", leftOut},
                     {"ignored", profiles.Warnings()},
                     {"output", output}};
    answer.AddAll(ToJson(profiles.Of(output)));
    if (client == nullptr) return answer;
    std::vector<JsonValue> players;
    for (const Player& player : client->Players())
        players.push_back({{"id", player.id},
                           {"application", player.application},
                           {"title", player.title},
                           {"routed", player.isRouted},
                           {"left_out", player.isLeftOut},
                           {"own_target", player.hasOwnTarget}});
    return answer.Add("rate", client->RateHz())
        .Add("latency_frames", client->LatencyFrames())
        .Add("players", players);
}

JsonValue Outputs(const Profiles& profiles, const RunningClient* client) {
    std::vector<JsonValue> outputs;
    const auto add = [&](const std::string& name, const std::string& description, bool isThere) {
        outputs.push_back({{"name", name},
                           {"description", description},
                           {"connected", isThere},
                           {"present", client != nullptr && client->PresentOutput() == name},
                           {"profile", profiles.Has(name) ? ToJson(profiles.Of(name)) : nullptr}});
    };
    std::set<std::string> connected;
    if (client != nullptr)
        for (const OutputDevice& output : client->Outputs()) {
            connected.insert(output.name);
            add(output.name, output.description, true);
        }
    for (const auto& [name, profile] : profiles.All())
        if (!connected.contains(name)) add(name, "", false);
    return outputs;
}

// Does what only a running client can do. Returns false for all other requests.
bool DoAtClient(const std::string& what, const JsonValue& request, RunningClient* client,
                ConnectionWishes* wishes) {
    if (what != "quit" && what != "bypass" && what != "watch") return false;
    if (client == nullptr || wishes == nullptr) throw Refusal("it isn't running");
    const bool on = SwitchOf(request, "on", true);
    if (what == "quit") {
        client->Quit();
    } else if (what == "watch") {
        wishes->watches = on;
    } else {
        client->SetBypass(on, NumberOf(request, "gain_db", 0, kMostGainDb));
        wishes->bypasses = on;
    }
    return true;
}

JsonValue Do(const JsonValue& request, Profiles* profiles, RunningClient* client,
             ConnectionWishes* wishes) {
    const std::string what = TextOf(request, "do");
    if (what == "status") {
        JsonValue status = Status(*profiles, client);
        if (client != nullptr) status.Add("levels", ToJson(client->Levels()));
        return status;
    }
    if (what == "outputs") return {{"outputs", Outputs(*profiles, client)}};
    if (DoAtClient(what, request, client, wishes)) return {};
    std::string fault;
    JsonValue answer;
    if (what == "leave-out") {
        fault = profiles->LeaveOut(TextOf(request, "application"), SwitchOf(request, "out", true));
    } else {
        const std::string output =
            TextOf(request, "for", client != nullptr ? client->PresentOutput().c_str() : "");
        Profile profile = profiles->Of(output);
        if (what == "on") {
            profile.isOn = true;
            std::vector<std::string> warnings = profiles->Warnings();
            profile.settings = SettingsIn(request, profile.settings, &warnings);
            answer.Add("ignored", warnings);
        } else if (what == "off") {
            if (output.empty()) throw Refusal("there is no output");
            profile.isOn = false;
        } else if (what == "set" && request.Has("settings")) {
            std::vector<std::string> warnings;
            profile.settings = SettingsIn(request, profile.settings, &warnings);
            answer.Add("ignored", warnings);
        } else if (what == "set") {
            const std::string wrong =
                SetFromText(TextOf(request, "key"), TextOf(request, "value"), &profile.settings);
            if (!wrong.empty()) throw Refusal(wrong);
        } else {
            throw Refusal(fmt::format("\"{}\" is no request", what));
        }
        fault = profiles->Set(output, profile);
    }
    if (client != nullptr) client->ProfilesChanged();
    if (!fault.empty()) throw Refusal(fault);
    return answer;
}

}  // namespace

std::string AnswerRequest(const std::string& line, Profiles* profiles, RunningClient* client,
                          ConnectionWishes* wishes) {
    JsonValue answer;
    try {
        const JsonValue request = JsonValue::Parse(line);
        if (!request.IsObject()) throw Refusal("a request is one JSON object on a line");
        answer = Do(request, profiles, client, wishes);
        answer.Add("ok", true);
    } catch (const std::exception& fault) {
        answer = {{"ok", false}, {"error", fault.what()}};
    }
    return answer.OneLine();
}

std::string LevelsEvent(const RunningClient& client) {
    JsonValue event{{"event", "levels"}};
    return event.AddAll(ToJson(client.Levels())).OneLine();
}

std::string StateEvent(const Profiles& profiles, const RunningClient& client) {
    const JsonValue event{{"event", "state"},
                          {"status", Status(profiles, &client)},
                          {"outputs", Outputs(profiles, &client)}};
    return event.OneLine();
}
