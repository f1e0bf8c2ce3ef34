#include "render/report.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "client/settings_text.h"

namespace {

std::string Count(uint64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// "1:00.632 min" or "1:00:00.000 h".
std::string Duration(double seconds) {
    const auto thousandths = static_cast<uint64_t>(std::llround(seconds * 1000));
    const uint64_t minutes = thousandths / 60000;
    const double rest = static_cast<double>(thousandths % 60000) / 1000;
    if (minutes < 60) return fmt::format("{}:{:06.3f} min", minutes, rest);
    return fmt::format("{}:{:02}:{:06.3f} h", minutes / 60, minutes % 60, rest);
}

// The unit stands with the first that was measured.
std::string Levels(double before, double after, const char* unit) {
    const auto text = [](double level, const char* unitOf) {
        return std::isnan(level) ? "not measured" : fmt::format("{:.1f}{}", level, unitOf);
    };
    return text(before, unit) + " before, " + text(after, std::isnan(before) ? unit : "") +
           " after";
}

nlohmann::json LevelJson(double level) {
    if (!std::isfinite(level)) return nullptr;
    return level;
}

nlohmann::ordered_json ToneJson(const std::optional<ToneFit>& tone) {
    if (!tone) return nullptr;
    return {{"rmsDb", tone->rmsDb}, {"worstDb", tone->worstDb}, {"worstHz", tone->worstHz}};
}

}  // namespace

std::string TextOf(const Report& report) {
    std::string text = report.input + " -> " + report.output + "\n";
    text += "  " + std::to_string(report.rateHz) + " Hz, " +
            (report.channels == 1 ? "mono, " : "stereo, ") +
            Duration(static_cast<double>(report.frames) / report.rateHz) + " (" +
            Count(report.frames, "frame") + "), in buffers of " +
            Count(report.bufferFrames, "frame") + "\n";
    text += "  preset " + report.preset + ": " + Describe(report.settings) + "\n";
    if (report.tone) text += "  tone     " + FitText(*report.tone) + "\n";
    if (report.matchedLufs)
        text += fmt::format("  match    {:.1f} LUFS by output-gain ", *report.matchedLufs) +
                ValueText(ParameterOf(PARAM_OUTPUT_GAIN), report.settings.Get(PARAM_OUTPUT_GAIN)) +
                "\n";
    text += "  delay    " + Count(report.delayFrames, "frame") +
            fmt::format(" ({:.1f} ms) ", 1000.0 * report.delayFrames / report.chainRateHz) +
            (report.delayRemoved ? "removed\n" : "kept\n");
    text += report.settlingFrames == 0
                ? std::string("  start    cold, as the framework's\n")
                : fmt::format("  start    after {:.1f} s of silence, dropped again\n",
                              static_cast<double>(report.settlingFrames) / report.chainRateHz);
    text +=
        "  loudness " + Levels(report.before.integratedLufs, report.after.integratedLufs, " LUFS") +
        "; true peak " + Levels(report.before.truePeakDb, report.after.truePeakDb, " dB") + "\n";
    if (!std::isnan(report.before.rangeLu) || !std::isnan(report.after.rangeLu))
        text += "  range    " + Levels(report.before.rangeLu, report.after.rangeLu, " LU") +
                " (over 3 s, every 1 s)\n";
    text += "  clipped  " + Count(report.clippedIn, "sample") + " on the way in";
    if (report.clippedOut > 0) text += ", " + std::to_string(report.clippedOut) + " on the way out";
    text += report.dithered ? "; dithered to 16 bits\n" : "\n";
    for (const std::string& note : report.notes) text += "  note: " + note + "\n";
    text += fmt::format("  {:.0f} times real time\n", report.speed);
    return text;
}

void PrintWarnings(const Report& report) {
    for (const std::string& warning : report.warnings) fmt::print(stderr, "orvane: {}\n", warning);
}

std::string DamageText(const std::string& input, const std::vector<std::string>& damage) {
    return fmt::format("{} is damaged: {}", input == "-" ? "standard input" : input,
                       fmt::join(damage, "; "));
}

std::string JsonOf(const Report& report) {
    nlohmann::ordered_json settings;
    for (const Parameter& parameter : kParameters)
        if (*parameter.key != '\0' && parameter.kind == ParameterKind::kSwitch)
            settings[parameter.key] = report.settings.IsOn(parameter.id);
        else if (parameter.id == PARAM_EQUALIZER_BANDLEVEL)
            settings[parameter.key] = report.settings.BandLevels();
        else if (*parameter.key != '\0')
            settings[parameter.key] = report.settings.Get(parameter.id);
    const nlohmann::ordered_json json = {
        {"input", report.input},
        {"output", report.output},
        {"preset", report.preset},
        {"settings", settings},
        {"tone", ToneJson(report.tone)},
        {"matchedLufs", report.matchedLufs ? LevelJson(*report.matchedLufs) : nullptr},
        {"rateHz", report.rateHz},
        {"channels", report.channels},
        {"frames", report.frames},
        {"seconds", static_cast<double>(report.frames) / report.rateHz},
        {"chainRateHz", report.chainRateHz},
        {"outputRateHz", report.outputRateHz},
        {"bufferFrames", report.bufferFrames},
        {"delayFrames", report.delayFrames},
        {"delayRemoved", report.delayRemoved},
        {"settlingFrames", report.settlingFrames},
        {"dithered", report.dithered},
        {"clippedIn", report.clippedIn},
        {"clippedOut", report.clippedOut},
        {"notNumbers", report.notNumbers},
        {"loudnessLufs",
         {{"before", LevelJson(report.before.integratedLufs)},
          {"after", LevelJson(report.after.integratedLufs)}}},
        {"loudnessRangeLu",
         {{"before", LevelJson(report.before.rangeLu)},
          {"after", LevelJson(report.after.rangeLu)}}},
        {"truePeakDb",
         {{"before", LevelJson(report.before.truePeakDb)},
          {"after", LevelJson(report.after.truePeakDb)}}},
        {"speed", report.speed},
        {"notes", report.notes},
        {"warnings", report.warnings},
        {"damage", report.damage},
    };
    // File names need not be UTF-8.
    return json.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
}
