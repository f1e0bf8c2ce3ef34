#include "desktop/commands.h"

#include <fmt/core.h>

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "client/settings_text.h"

using nlohmann::ordered_json;

namespace {

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

ordered_json ToJson(const Profile& profile) {
    return {{"on", profile.isOn},
            {"settings", LinesOf(profile.settings)},
            {"text", Describe(profile.settings)}};
}

ordered_json Status(const Profiles& profiles, const RunningClient* client) {
    ordered_json answer{{"running", client != nullptr},
                        {"left_out", profiles.LeftOut()},
                        {"ignored", profiles.Warnings()}};
    const std::string output = client != nullptr ? client->PresentOutput() : "";
    answer["output"] = output;
    answer.update(ToJson(profiles.Of(output)));
    if (client == nullptr) return answer;
    const LiveStream::Levels levels = client->Levels();
    answer["rate"] = client->RateHz();
    answer["latency_frames"] = client->LatencyFrames();
    answer["levels"] = {{"before_db", levels.sourceDb},
                        {"after_db", levels.resultDb},
                        {"gain_db", levels.gainDb},
                        {"limiting", levels.limiting}};
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
    return {{"outputs", outputs}};
}

ordered_json Do(const ordered_json& request, Profiles* profiles, RunningClient* client) {
    const std::string what = TextOf(request, "do");
    if (what == "status") return Status(*profiles, client);
    if (what == "outputs") return Outputs(*profiles, client);
    if (what == "quit" || what == "bypass") {
        if (client == nullptr) throw Refusal("it isn't running");
        if (what == "quit")
            client->Quit();
        else
            client->SetBypass(SwitchOf(request, "on", true));
        return ordered_json::object();
    }
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
            if (const auto lines = request.find("settings"); lines != request.end()) {
                if (!lines->is_array()) throw Refusal("\"settings\" must be a list of lines");
                std::vector<std::string> texts;
                for (const ordered_json& text : *lines)
                    texts.push_back(text.is_string() ? text.get<std::string>() : text.dump());
                profile.settings = SettingsOfLines(texts, &warnings);
            }
            answer["ignored"] = warnings;
        } else if (what == "off") {
            if (output.empty()) throw Refusal("there is no output");
            profile.isOn = false;
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

std::string AnswerRequest(const std::string& line, Profiles* profiles, RunningClient* client) {
    ordered_json answer;
    try {
        const ordered_json request = ordered_json::parse(line, nullptr, false);
        if (!request.is_object()) throw Refusal("a request is one JSON object on a line");
        answer = Do(request, profiles, client);
        answer["ok"] = true;
    } catch (const std::exception& fault) {
        answer = {{"ok", false}, {"error", fault.what()}};
    }
    // JSON knows no infinity, and texts from other programs need not be UTF-8.
    return answer.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
}
