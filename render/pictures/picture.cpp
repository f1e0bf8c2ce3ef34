#include "render/pictures/picture.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "render/failure.h"
#include "render/pictures/gnuplot.h"

namespace {

// A measured response with a larger residual than this is only an estimate.
constexpr double kRoughDb = -20;
constexpr double kFloorDb = -120;  // drawn for silence and everything below
const std::string kSilent = "silent";
constexpr const char* kGap = " \u00b7 ";  // between numbers
// The source pauses where its loudness is below kSilenceLufs, or this far below that of the whole
// piece.
constexpr double kSilenceLufs = -60, kPauseLu = -40;
// Levels that exceed the noise of 16-bit dither by less than this count as noise.
constexpr double kNoiseMarginDb = 6;
// The mean gain between these frequencies is the zero line of the gain over frequency.
constexpr double kMiddleFromHz = 300, kMiddleToHz = 3000;

// For pieces of up to this length, the momentary loudness is drawn, because each of its values has
// a pixel. For longer ones, the short-term loudness is drawn. A band shows the lowest and the
// highest value within each pixel.
constexpr double kShortSeconds = 75;
constexpr size_t kMomentaryTenths = 4, kShortTermTenths = 30;
constexpr size_t kMostColumns = 700;

// The places of the four panels: gain and level over frequency at the left, over time at the right.
constexpr GnuplotPlace kTopLeft{0.05, 0.49, 0.49, 0.83}, kBottomLeft{0.05, 0.49, 0.055, 0.38};
constexpr GnuplotPlace kTopRight{0.55, 0.985, 0.49, 0.83}, kBottomRight{0.55, 0.985, 0.055, 0.38};

// Returns the value with one digit after the point, and never "-0.0".
std::string Tenths(double value) {
    return fmt::format("{:.1f}", std::round(value * 10) / 10 + 0.0);
}

// Returns a change such as "True peak -3.0 → -0.1 dBTP · ", or "" if neither level was measured.
std::string Change(const char* name, double before, double after, const char* unit) {
    if (!std::isfinite(before) && !std::isfinite(after)) return "";
    if (!std::isfinite(after))
        return fmt::format("{} {} {} → {}{}", name, Tenths(before), unit, kSilent, kGap);
    const std::string from = std::isfinite(before) ? Tenths(before) : kSilent;
    return fmt::format("{} {} → {} {}{}", name, from, Tenths(after), unit, kGap);
}

// Returns why the piece has no loudness, or "" if it has one.
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
    std::string numbers =
        Change("Loudness", before.integratedLufs, after.integratedLufs, "LUFS") +
        Change("Loudness range (3 s, every 1 s)", before.rangeLu, after.rangeLu, "LU") +
        Change("True peak", before.truePeakDb, after.truePeakDb, "dBTP") + NoLoudness(input);
    if (numbers.ends_with(kGap)) numbers.resize(numbers.size() - std::strlen(kGap));
    if (NoLoudness(input).empty() && !std::isfinite(before.rangeLu))
        numbers += std::string(kGap) + "shorter than 3 s: no loudness range";
    return numbers;
}

const std::vector<GnuplotKey> kKey{{"lines linewidth 2", kBlue, "before"},
                                   {"lines linewidth 2", kOrange, "after"},
                                   {"filledcurves y=-1", kPaleOrange, "louder"},
                                   {"filledcurves y=-1", kPaleBlue, "softer"}};

constexpr const char* kBand = "filledcurves fillstyle transparent solid 0.35 noborder";

// Returns the plot element for a curve of the columns `what` of the data.
std::string Curve(const std::string& data, const char* what, const char* style,
                  const char* colour) {
    return data + " using " + what + " with " + style + " linecolor rgb '" + colour + "'";
}

// Plots columns 2 (before) and 3 (after). The area between the curves shows what became louder or
// softer.
std::string BeforeAndAfter(const std::string& data) {
    return "plot " + Curve(data, "1:2:3", "filledcurves below", kPaleOrange) + ", " +
           Curve(data, "1:2:3", "filledcurves above", kPaleBlue) + ", " +
           Curve(data, "1:2", "lines", kBlue) + ", " + Curve(data, "1:3", "lines", kOrange) + "\n";
}

// Plots a curve of gain and fills the area between it and the zero line. `more` has further curves,
// which lie above the filled area.
std::string FromZero(const std::string& data, const std::string& more = "") {
    return "plot " + Curve(data, "1:2", "filledcurves above y=0", kPaleOrange) + ", " +
           Curve(data, "1:2", "filledcurves below y=0", kPaleBlue) + ", " + more +
           Curve(data, "1:2", "lines", kInk) + ", 0 linecolor rgb '" + kGrey + "' notitle\n";
}

double HighestHz(const Spectrum& spectrum) {
    return spectrum.stepHz * static_cast<double>(spectrum.power.size() - 1);
}

// Returns the level of a band below which nothing can be told from the noise of 16-bit dither. The
// dither's power is a quarter of a squared step (client/quantize.h), spread evenly up to half the
// rate.
double NoiseDb(const Spectrum& spectrum, double lowHz, double highHz) {
    constexpr double kSteps = 32768;
    const double part = (highHz - lowHz) / HighestHz(spectrum);
    return 10 * std::log10(2 * 0.25 / (kSteps * kSteps) * part) + kNoiseMarginDb;
}

std::string SpectrumPanel(const PictureInput& input) {
    const Spectrum &before = input.before.spectrum, &after = input.after.spectrum;
    const std::vector<double> grid =
        FrequencyGrid(2 * std::min(HighestHz(before), HighestHz(after)));
    std::vector<double> beforeDb, afterDb, all;
    for (const double frequency : grid) {
        const double low = frequency * std::exp2(-1.0 / 12), high = frequency * std::exp2(1.0 / 12);
        const double noiseBefore = NoiseDb(before, low, high),
                     noiseAfter = NoiseDb(after, low, high);
        beforeDb.push_back(std::max(BandLevelDb(before, low, high), noiseBefore));
        afterDb.push_back(std::max(BandLevelDb(after, low, high), noiseAfter));
        if (beforeDb.back() == noiseBefore && afterDb.back() == noiseAfter)
            beforeDb.back() = afterDb.back() = NAN;
        all.insert(all.end(), {beforeDb.back(), afterDb.back()});
    }
    const bool empty = std::none_of(all.begin(), all.end(), [](double db) { return db == db; });
    const bool silent = NoLoudness(input) == kSilent;
    return GnuplotData("$spectrum", {grid, beforeDb, afterDb}) +
           GnuplotPanel("Spectrum: average level per sixth of an octave", kTopLeft) +
           (empty ? GnuplotNote(silent ? kSilent : "nothing above the noise of 16 bits") : "") +
           GnuplotFrequencyAxis() +
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
           (input.enhances ? GnuplotBandSplits() : "") + GnuplotFrequencyAxis() +
           GnuplotValueAxis(
               {.label = "dB", .step = 3, .alwaysLow = -6, .alwaysHigh = 6, .reach = 60}, gainDb) +
           FromZero("$response", Curve("$response", "1:3", "lines dashtype 3", kInk) + ", ");
}

// A curve over time with at most kMostColumns columns. A column combines the values of some tenths
// of a second: their mean, the lowest and the highest.
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
    return axis +
           "set xtics time format '%1tHh%02tM'\nset xlabel 'hours and minutes' offset 0,0.5\n";
}

// Returns for each value of a loudness curve whether it belongs to a pause. `window` is the length
// of the values' windows in tenths. A pause is a value below the limit and all values within half a
// window of it. Those values depend only on the last or the next moment of music, so their gain
// would mislead.
std::vector<bool> Pauses(const std::vector<double>& lufs, double integratedLufs, size_t window) {
    const double pauseLufs = std::fmax(kSilenceLufs, integratedLufs + kPauseLu);
    std::vector<bool> pauses(lufs.size());
    for (size_t i = 0; i < lufs.size(); ++i) {
        if (lufs[i] >= pauseLufs) continue;
        const size_t end = std::min(i + window / 2 + 1, lufs.size());
        for (size_t k = i - std::min(i, window / 2); k < end; ++k) pauses[k] = true;
    }
    return pauses;
}

std::string LoudnessPanels(const PictureInput& input) {
    const bool isShort = input.seconds <= kShortSeconds;
    const size_t window = isShort ? kMomentaryTenths : kShortTermTenths;
    std::vector<double> before = LoudnessCurve(input.before.tenths, window);
    std::vector<double> after = LoudnessCurve(input.after.tenths, window), gain, heard;
    const size_t count = std::max<size_t>(std::min(before.size(), after.size()), 1);
    before.resize(count, NAN);
    after.resize(count, NAN);
    for (size_t i = 0; i < count; ++i) {
        before[i] = std::fmax(before[i], kFloorDb);
        after[i] = std::fmax(after[i], kFloorDb);
    }
    const std::vector<bool> pauses = Pauses(before, input.before.loudness.integratedLufs, window);
    for (size_t i = 0; i < count; ++i) {
        gain.push_back(pauses[i] ? NAN : after[i] - before[i]);
        if (!pauses[i]) heard.insert(heard.end(), {before[i], after[i]});
    }
    const TimeCurve beforeCurve(before), afterCurve(after), gainCurve(gain);

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
                            heard) +
           loudness +
           GnuplotData("$gain",
                       {gainCurve.seconds, gainCurve.mean, gainCurve.low, gainCurve.high}) +
           GnuplotPanel("Gain over time: loudness after minus loudness before", kBottomRight,
                        heard.size() < 2 * count ? "Not drawn where the source pauses" : "") +
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

void DrawPicture(const PictureInput& input, const PngFile& png) {
    if (input.seconds == 0) throw Failure("{} cannot be drawn: there is no audio", png.name);
    if (input.before.spectrum.power.empty() || input.after.spectrum.power.empty())
        throw Failure("{} cannot be drawn: there was not enough memory to measure the piece",
                      png.name);
    const MeasuredResponse response =
        MeasureResponse(input.chainWithoutPlaybackGain, input.channels, input.rateHz);
    RunGnuplot(GnuplotPage(input.title, {input.settings, Numbers(input)}, kKey) +
                   SpectrumPanel(input) + ResponsePanel(input, response) + LoudnessPanels(input),
               png);
}
