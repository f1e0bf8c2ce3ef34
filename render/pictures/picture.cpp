#include "render/pictures/picture.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "render/pictures/band_splits.h"
#include "render/pictures/gnuplot.h"

namespace {

// Above this residual a measured response is no more than an estimate.
constexpr double kRoughDb = -20;
constexpr double kFloorDb = -120;  // stands for silence
constexpr const char* kSilent = "silent";
// Loudness below which music counts as silent: no gain is drawn.
constexpr double kSilenceLufs = -60;
// The middle of hearing, whose mean gain is the zero line of the gain over frequency.
constexpr double kMiddleFromHz = 300, kMiddleToHz = 3000;

// Up to here every value of the momentary loudness has a pixel, and beyond that short-term loudness
// is drawn, with a band from the lowest to the highest value of a pixel's width.
constexpr double kShortSeconds = 75;
constexpr size_t kMomentaryTenths = 4, kShortTermTenths = 30;
constexpr size_t kMostColumns = 700;

// Where the four panels lie: frequency at the left, time at the right.
constexpr GnuplotPlace kTopLeft{0.05, 0.49, 0.49, 0.83}, kBottomLeft{0.05, 0.49, 0.055, 0.38};
constexpr GnuplotPlace kTopRight{0.55, 0.985, 0.49, 0.83}, kBottomRight{0.55, 0.985, 0.055, 0.38};

// One digit after the point, no "-0.0".
std::string Tenths(double value) {
    return fmt::format("{:.1f}", std::round(value * 10) / 10 + 0.0);
}

// "True peak -3.0 → -0.1 dBTP".
std::string Change(const char* name, double before, double after, const char* unit) {
    const auto text = [](double value) {
        return std::isfinite(value) ? Tenths(value) : std::string("none");
    };
    return std::string(name) + ' ' + text(before) + " → " + text(after) + ' ' + unit;
}

// Why a piece has no loudness; "" if it has one.
std::string NoLoudness(const PictureInput& input) {
    const Loudness& before = input.before.loudness;
    if (std::isfinite(before.integratedLufs)) return "";
    if (std::isnan(before.integratedLufs)) return "not measured at this sampling rate";
    if (!std::isfinite(before.truePeakDb)) return kSilent;
    if (input.seconds < 0.4) return "shorter than 0.4 s: no loudness";
    return "below -70 LUFS throughout: no loudness";
}

std::string Numbers(const PictureInput& input) {
    const Loudness &before = input.before.loudness, &after = input.after.loudness;
    const char* const gap = " \u00b7 ";
    std::string numbers =
        Change("Loudness", before.integratedLufs, after.integratedLufs, "LUFS") + gap +
        Change("Loudness range (3 s, every 1 s)", before.rangeLu, after.rangeLu, "LU") + gap +
        Change("True peak", before.truePeakDb, after.truePeakDb, "dBTP");
    const std::string none = NoLoudness(input);
    if (!none.empty())
        numbers += gap + none;
    else if (!std::isfinite(before.rangeLu))
        numbers += std::string(gap) + "shorter than 3 s: no loudness range";
    return numbers;
}

const std::vector<GnuplotKey> kKey{{"lines linewidth 2", kBlue, "before"},
                                   {"lines linewidth 2", kOrange, "after"},
                                   {"filledcurves y=-1", kPaleOrange, "louder"},
                                   {"filledcurves y=-1", kPaleBlue, "softer"}};

constexpr const char* kBand = "filledcurves fillstyle transparent solid 0.35 noborder";

// A curve of columns `what` of the data.
std::string Curve(const std::string& data, const char* what, const char* style,
                  const char* colour) {
    return data + " using " + what + " with " + style + " linecolor rgb '" + colour + "'";
}

// The curves of columns 2 (before) and 3 (after), and between them what became louder or softer.
std::string BeforeAndAfter(const std::string& data) {
    return "plot " + Curve(data, "1:2:3", "filledcurves below", kPaleOrange) + ", " +
           Curve(data, "1:2:3", "filledcurves above", kPaleBlue) + ", " +
           Curve(data, "1:2", "lines", kBlue) + ", " + Curve(data, "1:3", "lines", kOrange) + "\n";
}

// A curve of gain, filled down or up to the zero line. `more`: curves above it.
std::string FromZero(const std::string& data, const std::string& more = "") {
    return "plot " + Curve(data, "1:2", "filledcurves above y=0", kPaleOrange) + ", " +
           Curve(data, "1:2", "filledcurves below y=0", kPaleBlue) + ", " + more +
           Curve(data, "1:2", "lines", kInk) + ", 0 linecolor rgb '" + kGrey + "' notitle\n";
}

// Frequencies that both have.
std::vector<double> SpectrumGrid(const Spectrum& before, const Spectrum& after) {
    const auto highestHz = [](const Spectrum& spectrum) {
        return spectrum.stepHz * static_cast<double>(spectrum.power.size() - 1);
    };
    return FrequencyGrid(2 * std::min(highestHz(before), highestHz(after)));
}

std::string SpectrumPanel(const PictureInput& input) {
    const Spectrum &before = input.before.spectrum, &after = input.after.spectrum;
    const std::vector<double> grid = SpectrumGrid(before, after);
    std::vector<double> beforeDb, afterDb, all;
    for (const double frequency : grid) {
        const double low = frequency * std::exp2(-1.0 / 12), high = frequency * std::exp2(1.0 / 12);
        beforeDb.push_back(std::max(BandLevelDb(before, low, high), kFloorDb));
        afterDb.push_back(std::max(BandLevelDb(after, low, high), kFloorDb));
        all.insert(all.end(), {beforeDb.back(), afterDb.back()});
    }
    const bool silent = NoLoudness(input) == kSilent;
    return GnuplotData("$spectrum", {grid, beforeDb, afterDb}) +
           GnuplotPanel("Spectrum: average level per sixth of an octave", kTopLeft) +
           (silent ? GnuplotNote(kSilent) : "") + GnuplotFrequencyAxis() +
           GnuplotValueAxis({.label = "dB (full-scale sine: 0)",
                             .step = 10,
                             .alwaysLow = -30,
                             .alwaysHigh = -30,
                             .reach = 80},
                            all) +
           BeforeAndAfter("$spectrum");
}

double MiddleDb(const std::vector<double>& grid, const std::vector<double>& gainDb) {
    double sum = 0, count = 0;
    for (size_t i = 0; i < grid.size(); ++i) {
        if (grid[i] < kMiddleFromHz || grid[i] > kMiddleToHz) continue;
        sum += gainDb[i];
        ++count;
    }
    return sum / count;
}

std::string ResponsePanel(const PictureInput& input, const MeasuredResponse& response) {
    const std::vector<double> grid = FrequencyGrid(input.rateHz);
    std::vector<double> gainDb(grid.size()), askedDb(grid.size(), NAN);
    std::transform(grid.begin(), grid.end(), gainDb.begin(), [&](double frequency) {
        return std::max(MagnitudeDb(response, frequency), kFloorDb);
    });
    const double middleDb = MiddleDb(grid, gainDb);
    for (double& db : gainDb) db -= middleDb;
    if (!input.asked.empty())
        std::transform(grid.begin(), grid.end(), askedDb.begin(), [&](double frequency) {
            return CurveDb(input.asked, frequency) - middleDb;
        });
    std::string line = "Playback gain off";
    if (response.residualDb > kRoughDb) line += " (rough)";
    if (!input.asked.empty()) line += "; dotted: as asked";
    if (input.enhances) line += std::string("; ") + kBandSplitsText;
    return GnuplotData("$response", {grid, gainDb, askedDb}) +
           GnuplotPanel("Gain over frequency; 0 is its mean from 300 to 3000 Hz, " +
                            Tenths(middleDb) + " dB",
                        kBottomLeft, line) +
           (input.enhances ? BandSplitMarks() : "") + GnuplotFrequencyAxis() +
           GnuplotValueAxis(
               {.label = "dB", .step = 3, .alwaysLow = -6, .alwaysHigh = 6, .reach = 60}, gainDb) +
           FromZero("$response", Curve("$response", "1:3", "lines dashtype 3", kInk) + ", ");
}

// A curve over time in columns of some tenths of a second each.
struct TimeCurve {
    explicit TimeCurve(const std::vector<double>& values) {
        for (size_t first = 0; first < values.size();) {
            const size_t end =
                std::min(first + (values.size() - 1) / kMostColumns + 1, values.size());
            double sum = 0, count = 0;
            low.push_back(NAN);
            high.push_back(NAN);
            for (size_t i = first; i < end; ++i) {
                if (std::isnan(values[i])) continue;
                sum += values[i];
                ++count;
                low.back() = std::fmin(low.back(), values[i]);
                high.back() = std::fmax(high.back(), values[i]);
            }
            mean.push_back(sum / count);
            seconds.push_back(0.05 * static_cast<double>(first + end - 1));
            first = end;
        }
    }
    std::vector<double> seconds, mean, low, high;
};

std::string TimeAxis(double seconds) {
    const std::string axis = "unset mxtics\nset xrange [0:" + std::to_string(seconds) + "]\n";
    if (seconds < 20) return axis + "set xlabel 's' offset 0,0.5\n";
    if (seconds < 5400)
        return axis + "set xtics time format '%1tM:%02tS'\nset xlabel 'min:s' offset 0,0.5\n";
    return axis + "set xtics time format '%1tH:%02tM'\nset xlabel 'h:min' offset 0,0.5\n";
}

std::string LoudnessPanels(const PictureInput& input) {
    const bool isShort = input.seconds <= kShortSeconds;
    const size_t window = isShort ? kMomentaryTenths : kShortTermTenths;
    std::vector<double> before = LoudnessCurve(input.before.tenths, window);
    std::vector<double> after = LoudnessCurve(input.after.tenths, window), gain;
    const size_t count = std::max<size_t>(std::min(before.size(), after.size()), 1);
    before.resize(count, NAN);
    after.resize(count, NAN);
    for (size_t i = 0; i < count; ++i) {
        before[i] = std::fmax(before[i], kFloorDb);
        after[i] = std::fmax(after[i], kFloorDb);
        gain.push_back(before[i] < kSilenceLufs ? NAN : after[i] - before[i]);
    }
    const TimeCurve beforeCurve(before), afterCurve(after), gainCurve(gain);
    std::vector<double> all = beforeCurve.mean;
    all.insert(all.end(), afterCurve.mean.begin(), afterCurve.mean.end());

    std::string loudness = BeforeAndAfter("$loudness"), bands;
    std::string line = "Momentary: over 400 ms";
    if (!isShort) {
        line = "Short-term: over 3 s; lines: mean, bands: lowest to highest";
        loudness = "plot " + Curve("$loudness", "1:4:5", kBand, kBlue) + ", " +
                   Curve("$loudness", "1:6:7", kBand, kOrange) + ", " +
                   Curve("$loudness", "1:2", "lines", kBlue) + ", " +
                   Curve("$loudness", "1:3", "lines", kOrange) + "\n";
        bands = Curve("$gain", "1:3:4", kBand, kInk) + ", ";
    }
    const std::string none = NoLoudness(input);
    const std::string note = none.empty() ? "" : GnuplotNote(none);
    return GnuplotData("$loudness",
                       {beforeCurve.seconds, beforeCurve.mean, afterCurve.mean, beforeCurve.low,
                        beforeCurve.high, afterCurve.low, afterCurve.high}) +
           GnuplotPanel("Loudness over time", kTopRight, line) + note + TimeAxis(input.seconds) +
           GnuplotValueAxis({.label = "LUFS",
                             .step = 5,
                             .alwaysLow = -20,
                             .alwaysHigh = -20,
                             .reach = 60,
                             .outliers = 0.01},
                            all) +
           loudness +
           GnuplotData("$gain",
                       {gainCurve.seconds, gainCurve.mean, gainCurve.low, gainCurve.high}) +
           GnuplotPanel("Gain over time: loudness after minus loudness before", kBottomRight) +
           note + TimeAxis(input.seconds) +
           GnuplotValueAxis({.label = "dB",
                             .step = 3,
                             .alwaysLow = -6,
                             .alwaysHigh = 6,
                             .reach = 60,
                             .outliers = 0.02},
                            gainCurve.mean) +
           FromZero("$gain", bands);
}

}  // namespace

bool DrawPicture(const PictureInput& input, const std::string& pngPath, std::string* error) {
    if (input.seconds == 0) {
        *error = "there is no audio";
        return false;
    }
    if (input.before.spectrum.power.empty() || input.after.spectrum.power.empty()) {
        *error = "there was no memory to measure the piece";
        return false;
    }
    const std::optional<MeasuredResponse> response =
        MeasureResponse(input.chainWithoutPlaybackGain, input.channels, input.rateHz);
    if (!response) {
        *error = "the effect refused the test signal";
        return false;
    }
    return RunGnuplot(GnuplotPage(input.title, {input.settings, Numbers(input)}, kKey) +
                          SpectrumPanel(input) + ResponsePanel(input, *response) +
                          LoudnessPanels(input),
                      pngPath, error);
}
