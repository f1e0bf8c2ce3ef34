#include "render/report.h"

#include <fmt/format.h>

#include <cmath>

#include "client/json.h"
#include "client/settings_text.h"
#include "client/terminal_text.h"
#include "render/audio/whole_write.h"

namespace {

std::string Count(uint64_t count, const char* noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// Returns a duration such as "1:00.632 min" or "1:00:00.000 h".
std::string Duration(double seconds) {
    const auto thousandths = static_cast<uint64_t>(std::llround(seconds * 1000));
    const uint64_t minutes = thousandths / 60000;
    const double rest = static_cast<double>(thousandths % 60000) / 1000;
    if (minutes < 60) return fmt::format("{}:{:06.3f} min", minutes, rest);
    return fmt::format("{}:{:02}:{:06.3f} h", minutes / 60, minutes % 60, rest);
}

// Returns two levels, such as "-31.0 LUFS before, -30.7 after". Only the first measured level has
// the unit.
std::string Levels(double before, double after, const char* unit) {
    const auto text = [](double level, const char* unitOf) {
        return std::isnan(level) ? "not measured" : fmt::format("{:.1f}{}", level, unitOf);
    };
    return text(before, unit) + " before, " + text(after, std::isnan(before) ? unit : "") +
           " after";
}

}  // namespace

std::string TextOf(const Report& report) {
    const std::string album = report.album.empty() ? "" : " (" + report.album + ")";
    std::string text = TerminalText(report.input + album + " -> " + report.output) + "\n";
    for (const TrackReport& track : report.tracks)
        text += fmt::format("  {:>13}  {} -> {}\n",
                            Duration(static_cast<double>(track.frames) / track.rateHz),
                            TerminalText(track.input), TerminalText(track.output));
    text += "  " + std::to_string(report.rateHz) + " Hz, " +
            (report.channels == 1 ? "mono, " : "stereo, ") + Duration(report.seconds) + " (" +
            Count(report.frames, "frame") + "), in buffers of " +
            Count(report.bufferFrames, "frame") + "\n";
    text += "  preset " + TerminalText(report.preset) + ": " + Describe(report.settings) + "\n";
    if (report.tone) text += "  tone     " + FitText(*report.tone) + "\n";
    if (report.matchedLufs)
        text += fmt::format("  match    {:.1f} LUFS by output-gain ", *report.matchedLufs) +
                ValueText(ParameterOf(PARAM_OUTPUT_GAIN), report.settings.Get(PARAM_OUTPUT_GAIN)) +
                "\n";
    text += "  delay    " + Count(report.delayFrames, "frame") +
            fmt::format(" ({:.1f} ms) ", 1000.0 * report.delayFrames / report.chainRateHz) +
            (report.delayRemoved ? "removed\n" : "kept\n");
    text += report.settlingFrames == 0
                ? std::string("  start    without settling, as in the framework\n")
                : fmt::format("  start    after {:.1f} s of silence, which are removed\n",
                              static_cast<double>(report.settlingFrames) / report.chainRateHz);
    text += "  loudness " +
            Levels(report.before.integratedLufs, report.after.integratedLufs, " LUFS") +
            "; true peak " + Levels(report.before.truePeakDb, report.after.truePeakDb, " dB");
    if (report.decodedPeakDb && !std::isnan(*report.decodedPeakDb))
        text += fmt::format(", {:.1f} in the output decoded", *report.decodedPeakDb);
    text += "\n";
    if (const auto& ceiling = report.ceiling)
        text += fmt::format(
            "  ceiling  {:.1f} dBTP: lowered by {:.2f} dB, true peak {:.2f} dB; written {}\n",
            ceiling->wantedDb, 0 - ceiling->gainDb, ceiling->reachedDb,
            ceiling->outputs == 1 ? "once" : fmt::format("{} times", ceiling->outputs));
    if (!std::isnan(report.before.rangeLu) || !std::isnan(report.after.rangeLu))
        text += "  range    " + Levels(report.before.rangeLu, report.after.rangeLu, " LU") +
                " (over 3 s, every 1 s)\n";
    text += "  clipped  " + Count(report.clippedIn, "sample") + " of the input";
    if (report.clippedOut > 0) text += ", " + std::to_string(report.clippedOut) + " of the output";
    text += report.dithered ? "; dithered to 16 bits before the chain\n" : "\n";
    for (const std::string& note : report.notes) text += "  note: " + TerminalText(note) + "\n";
    text += fmt::format("  {:.0f} times real time\n", report.seconds / report.elapsedSeconds);
    return text;
}

void PrintWarnings(const Report& report) {
    for (const std::string& warning : report.warnings) PrintMessage(warning);
}

std::string DamageText(const std::string& input, const std::vector<std::string>& damage) {
    return fmt::format("{} is damaged: {}", input == "-" ? "standard input" : input,
                       fmt::join(damage, "; "));
}

std::string JsonOf(const Report& report) {
    JsonValue settings, tone, loudness, range, peak, ceiling, json;
    for (const Parameter& parameter : kParameters)
        if (*parameter.key != '\0' && parameter.kind == ParameterKind::kSwitch)
            settings.Add(parameter.key, report.settings.IsOn(parameter.id));
        else if (parameter.kind == ParameterKind::kBandValue)
            settings.Add(parameter.key, std::span<const double>(report.settings.BandLevels()));
        else if (*parameter.key != '\0')
            settings.Add(parameter.key, report.settings.Get(parameter.id));
    json.Add("input", report.input).Add("output", report.output);
    std::vector<JsonValue> tracks;
    for (const TrackReport& track : report.tracks)
        tracks.push_back({{"input", track.input},
                          {"output", track.output},
                          {"rateHz", track.rateHz},
                          {"channels", track.channels},
                          {"frames", track.frames}});
    if (!tracks.empty()) json.Add("album", report.album).Add("tracks", tracks);
    json.Add("preset", report.preset).Add("settings", settings);
    if (report.tone)
        json.Add("tone", tone.Add("rmsDb", report.tone->rmsDb)
                             .Add("middleRmsDb", report.tone->middleRmsDb)
                             .Add("worstDb", report.tone->worstDb)
                             .Add("worstHz", report.tone->worstHz));
    else
        json.Add("tone", nullptr);
    json.Add("matchedLufs", report.matchedLufs)
        .Add("rateHz", report.rateHz)
        .Add("channels", report.channels)
        .Add("frames", report.frames)
        .Add("seconds", report.seconds)
        .Add("chainRateHz", report.chainRateHz)
        .Add("outputRateHz", report.outputRateHz)
        .Add("bufferFrames", report.bufferFrames)
        .Add("delayFrames", report.delayFrames)
        .Add("delayRemoved", report.delayRemoved)
        .Add("settlingFrames", report.settlingFrames)
        .Add("dithered", report.dithered)
        .Add("clippedIn", report.clippedIn)
        .Add("clippedOut", report.clippedOut)
        .Add("notNumbers", report.notNumbers)
        .Add("loudnessLufs", loudness.Add("before", report.before.integratedLufs)
                                 .Add("after", report.after.integratedLufs))
        .Add("loudnessRangeLu",
             range.Add("before", report.before.rangeLu).Add("after", report.after.rangeLu))
        .Add("truePeakDb", peak.Add("before", report.before.truePeakDb)
                               .Add("after", report.after.truePeakDb)
                               .Add("decoded", report.decodedPeakDb));
    if (report.ceiling)
        json.Add("ceiling", ceiling.Add("wantedDb", report.ceiling->wantedDb)
                                .Add("gainDb", report.ceiling->gainDb)
                                .Add("reachedDb", report.ceiling->reachedDb)
                                .Add("outputs", report.ceiling->outputs));
    else
        json.Add("ceiling", nullptr);
    json.Add("speed", report.seconds / report.elapsedSeconds)
        .Add("notes", report.notes)
        .Add("warnings", report.warnings)
        .Add("damage", report.damage);
    return json.Lines();
}
