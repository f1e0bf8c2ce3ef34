#include <fmt/format.h>

#include "client/parameter_command.h"
#include "client/settings_text.h"
#include "client/tone_file.h"
#include "dsp/samples.h"
#include "render/audio/whole_write.h"
#include "render/commands.h"
#include "render/failure.h"

namespace {

// Returns the band levels, the output gain, the gain at each point of the curve, and how near the
// tone comes to the curve.
std::string ToneText(const std::vector<TonePoint>& points, const ToneFit& fit,
                     const Settings& settings, double rateHz) {
    std::string text = fmt::format("at a sampling rate of {:.0f} Hz\n", rateHz);
    for (size_t band = 0; band < fit.levels.size(); ++band)
        text +=
            fmt::format("  band {}, {}{:5.0f} Hz  level {:5.2f}\n", band,
                        band == 0 ? "below" : "     ", BandHz(band, rateHz), fit.levels.at(band));
    text += "  output-gain " +
            ValueText(ParameterOf(PARAM_OUTPUT_GAIN), settings.Get(PARAM_OUTPUT_GAIN)) + "\n";
    for (const TonePoint& point : points)
        text +=
            fmt::format("  at {:.0f} Hz asked {} dB, gets {}\n", point.hz, DecibelText(point.db),
                        DecibelText(ToneDb(fit.levels, point.hz, rateHz)));
    text += "  " + FitText(fit) + "\n";
    return text;
}

// Returns the points at which the text shows the curve: its own, or those of a file's curve at the
// octaves.
std::vector<TonePoint> Shown(const ToneCurve& curve) {
    if (curve.focus == ToneFocus::kEven) return curve.points;
    std::vector<TonePoint> points;
    for (double hz = 31.25; hz <= 16000; hz *= 2) points.push_back({hz, CurveDb(curve.points, hz)});
    return points;
}

// Returns a line for each set-parameter command that an application sends: the parameter's name,
// the values, and the words of the record.
std::string Records(const Settings& settings) {
    std::string text;
    for (const ParameterCommand& command : settings.Commands()) {
        const auto id = static_cast<ParameterId>(command.id);
        std::string values;
        for (size_t i = 0; i < command.header.vsize / sizeof(int32_t); ++i)
            values += " " + std::to_string(command.values[i]);
        text += fmt::format("{:26}{:8} {} {} {} 0x{:X}{}\n", ParameterOf(id).name, values,
                            command.header.status, command.header.psize, command.header.vsize,
                            static_cast<unsigned>(command.id), values);
    }
    return text;
}

// Solves for the equalizer's levels that give a curve, and prints them.
class ToneCommand final : public Command {
public:
    explicit ToneCommand(Options& program);
    void Run() override;

private:
    std::vector<std::string> items;  // the points of the curve as text
    double rateHz = 44100;
    bool records = false;
};

ToneCommand::ToneCommand(Options& program)
    : Command(program, "tone", "find the ten equalizer levels for a tone curve") {
    options
        .Add(
            "POINTS", &items,
            "points HZ:DB ... of the curve, joined by straight lines, or the file of a headphone's "
            "curve (GraphicEQ or ParametricEQ of AutoEq)")
        .Required();
    options.Add("--rate", &rateHz, "sampling rate; the levels depend on it")
        .Type("HZ")
        .Within(kLowestRateHz, kHighestRateHz)
        .ShowDefault();
    options.AddFlag("--records", &records,
                    "print what an application sends: the parameter's name, its values, and the "
                    "words of the record");
}

void ToneCommand::Run() {
    ToneCurve curve;
    const std::string fault = ReadToneNamed(fmt::format("{}", fmt::join(items, ",")), &curve);
    if (!fault.empty()) throw UsageError("tone {}", fault);
    const ToneFit fit = FitTone(curve.points, rateHz, curve.focus);
    Settings settings;
    ApplyTone(fit, true, &settings);
    PrintToStandardOutput(records ? Records(settings)
                                  : ToneText(Shown(curve), fit, settings, rateHz));
}

}  // namespace

std::unique_ptr<Command> MakeToneCommand(Options& program) {
    return std::make_unique<ToneCommand>(program);
}
