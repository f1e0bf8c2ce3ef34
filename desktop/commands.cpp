#include "desktop/commands.h"

#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "client/settings_text.h"

using nlohmann::ordered_json;

namespace {

constexpr double kMostGainDb = 40;

// Says what is wrong with a request. The program that sent it gets the text as the answer's error.
struct Refusal : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string TextOf(const ordered_json& request, const char* key, const char* otherwise = nullptr) {
    const auto found = request.find(key);
    if (found == request.end() && otherwise != nullptr) return otherwise;
    if (found == request.end() || !found->is_string())
        throw Refusal(fmt::format("\"{}\" must be a text", key));
    return found->get<std::string>();
}
bool SwitchOf(const ordered_json& request, const char* key, bool otherwise) {
    const auto found = request.find(key);
    if (found == request.end()) return otherwise;
    if (!found->is_boolean()) throw Refusal(fmt::format("\"{}\" must be true or false", key));
    return found->get<bool>();
}

double NumberOf(const ordered_json& request, const char* key, double otherwise, double most) {
    const auto found = request.find(key);
    if (found == request.end()) return otherwise;
    const double number = found->is_number() ? found->get<double>() : NAN;
    if (!(number >= -most && number <= most))
        throw Refusal(fmt::format("\"{}\" must be a number from -{} to {}", key, most, most));
    return number;
}

// Returns the settings that a request has, or `otherwise`. Lines that can't be read add a warning.
Settings SettingsIn(const ordered_json& request, const Settings& otherwise,
                    std::vector<std::string>* warnings) {
    const auto lines = request.find("settings");
    if (lines == request.end()) return otherwise;
    if (!lines->is_array()) throw Refusal("\"settings\" must be a list of lines");
    std::vector<std::string> texts;
    for (const ordered_json& text : *lines) {
        if (!text.is_string()) throw Refusal("\"settings\" must hold texts");
        texts.push_back(text.get<std::string>());
    }
    return SettingsOfLines(texts, warnings);
}

// Returns one line. JSON knows no infinity, and texts from other programs need not be UTF-8.
std::string LineOf(const ordered_json& object) {
    return object.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}

ordered_json ToJson(const Profile& profile) {
    return {{"on", profile.isOn},
            {"settings", LinesOf(profile.settings)},
            {"text", Describe(profile.settings)}};
}

ordered_json ToJson(const LiveStream::Levels& levels) {
    return {{"before_db", levels.sourceDb},
            {"after_db", levels.resultDb},
            {"gain_db", levels.gainDb},
            {"limiting", levels.limiting}};
}

ordered_json Status(const Profiles& profiles, const RunningClient* client) {
    ordered_json answer{{"running", client != nullptr},
                        {"left_out", profiles.LeftOut()},
                        {"ignored", profiles.Warnings()}};
    const std::string output = client != nullptr ? client->PresentOutput() : "";
    answer["output"] = output;
    answer.update(ToJson(profiles.Of(output)));
    if (client == nullptr) return answer;
    answer["rate"] = client->RateHz();
    answer["latency_frames"] = client->LatencyFrames();
    answer["players"] = ordered_json::array();
    for (const Player& player : client->Players())
        answer["players"].push_back({{"id", player.id},
                                     {"application", player.application},
                                     {"title", player.title},
                                     {"routed", player.isRouted},
                                     {"left_out", player.isLeftOut},
                                     {"own_target", player.hasOwnTarget}});
    return answer;
}

ordered_json Outputs(const Profiles& profiles, const RunningClient* client) {
    ordered_json outputs = ordered_json::array();
    const auto add = [&](const std::string& name, const std::string& description, bool isThere) {
        outputs.push_back({{"name", name},
                           {"description", description},
                           {"connected", isThere},
                           {"present", client != nullptr && client->PresentOutput() == name},
                           {"profile", nullptr}});
        if (profiles.Has(name)) outputs.back()["profile"] = ToJson(profiles.Of(name));
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
bool DoAtClient(const std::string& what, const ordered_json& request, RunningClient* client,
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

ordered_json Do(const ordered_json& request, Profiles* profiles, RunningClient* client,
                ConnectionWishes* wishes) {
    const std::string what = TextOf(request, "do");
    if (what == "status") {
        ordered_json status = Status(*profiles, client);
        if (client != nullptr) status["levels"] = ToJson(client->Levels());
        return status;
    }
    if (what == "outputs") return {{"outputs", Outputs(*profiles, client)}};
    if (DoAtClient(what, request, client, wishes)) return ordered_json::object();
    std::string fault;
    ordered_json answer = ordered_json::object();
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
            answer["ignored"] = warnings;
        } else if (what == "off") {
            if (output.empty()) throw Refusal("there is no output");
            profile.isOn = false;
        } else if (what == "set" && request.contains("settings")) {
            std::vector<std::string> warnings;
            profile.settings = SettingsIn(request, profile.settings, &warnings);
            answer["ignored"] = warnings;
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
    ordered_json answer;
    try {
        const ordered_json request = ordered_json::parse(line, nullptr, false);
        if (!request.is_object()) throw Refusal("a request is one JSON object on a line");
        answer = Do(request, profiles, client, wishes);
        answer["ok"] = true;
    } catch (const std::exception& fault) {
        answer = {{"ok", false}, {"error", fault.what()}};
    }
    return LineOf(answer);
}

std::string LevelsEvent(const RunningClient& client) {
    ordered_json event{{"event", "levels"}};
    event.update(ToJson(client.Levels()));
    return LineOf(event);
}

std::string StateEvent(const Profiles& profiles, const RunningClient& client) {
    return LineOf({{"event", "state"},
                   {"status", Status(profiles, &client)},
                   {"outputs", Outputs(profiles, &client)}});
}
