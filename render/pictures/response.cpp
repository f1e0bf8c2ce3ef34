#include "render/pictures/response.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

namespace {

// A group delay is drawn only where the magnitude is at most this far below the largest one of the
// curve.
constexpr double kDelayFloorDb = 40;
constexpr double kFloorDb = -120;  // drawn for silence and everything below

struct Curve {
    std::vector<double> magnitudeDb, delayMs;
};

Curve CurveOf(const MeasuredResponse& response, const std::vector<double>& grid) {
    Curve curve;
    for (const double frequency : grid)
        curve.magnitudeDb.push_back(std::max(MagnitudeDb(response, frequency), kFloorDb));
    const double largest = *std::max_element(curve.magnitudeDb.begin(), curve.magnitudeDb.end());
    for (size_t i = 0; i < grid.size(); ++i) {
        const bool shown = curve.magnitudeDb[i] > std::max(largest - kDelayFloorDb, kFloorDb);
        curve.delayMs.push_back(shown ? GroupDelayMs(response, grid[i]) : NAN);
    }
    return curve;
}

// The curve of both together is wider and drawn first. So it stays visible where another curve
// covers it.
const std::vector<GnuplotKey> kKey{{"lines linewidth 2", kBlue, "equalizer"},
                                   {"lines linewidth 2", kOrange, "enhancer"},
                                   {"lines linewidth 5", "#b8b8b8", "both together"}};

const GnuplotKey kAskedKey{"lines linewidth 2 dashtype 3", kInk, "asked"};

// Returns the command that plots columns 2 to 4 of the data in the styles of kKey, the last one
// first.
std::string Plot(const std::string& data) {
    std::string plot = std::string("plot 0 linecolor rgb '") + kGrey + "'";
    for (size_t i = kKey.size(); i-- > 0;)
        plot += ", " + data + " using 1:" + std::to_string(i + 2) + " with " + kKey[i].style +
                " linecolor rgb '" + kKey[i].colour + "'";
    return plot;
}

}  // namespace

void DrawResponse(const ResponseInput& input, const PngFile& png) {
    const std::vector<double> grid = FrequencyGrid(input.rateHz);
    std::vector<std::vector<double>> magnitudes{grid}, delays{grid};
    std::vector<double> allMagnitudes, allDelays;
    std::vector<GnuplotKey> key = kKey;
    std::string asked;
    if (!input.asked.empty()) {
        std::vector<double> curve(grid.size());
        std::transform(grid.begin(), grid.end(), curve.begin(),
                       [&](double hz) { return CurveDb(input.asked, hz); });
        allMagnitudes = curve;
        asked = GnuplotData("$asked", {grid, curve});
        key.push_back(kAskedKey);
    }
    for (const SampleChain* chain : {&input.equalizerOnly, &input.enhancerOnly, &input.both}) {
        const Curve curve = CurveOf(MeasureResponse(*chain, input.channels, input.rateHz), grid);
        magnitudes.push_back(curve.magnitudeDb);
        delays.push_back(curve.delayMs);
        allMagnitudes.insert(allMagnitudes.end(), curve.magnitudeDb.begin(),
                             curve.magnitudeDb.end());
        allDelays.insert(allDelays.end(), curve.delayMs.begin(), curve.delayMs.end());
    }
    RunGnuplot(
        GnuplotPage(
            "Response of equalizer and enhancer",
            {input.settings,
             std::string("Measured with pink noise") +
                 (input.channels == 2 ? ", the same on both channels" : "") +
                 ", smoothed over 1/24 octave; playback gain off. Delay relative to the high "
                 "band."},
            key) +
            GnuplotData("$magnitude", magnitudes) + GnuplotData("$delay", delays) +
            GnuplotPanel(
                input.enhances ? std::string("Magnitude; ") + kBandSplitsText : "Magnitude",
                {0.05, 0.985, 0.49, 0.85}) +
            (input.enhances ? GnuplotBandSplits() : "") + GnuplotFrequencyAxis() +
            GnuplotValueAxis(
                {.label = "dB", .step = 3, .alwaysLow = -6, .alwaysHigh = 6, .reach = 60},
                allMagnitudes) +
            asked + Plot("$magnitude") +
            (asked.empty() ? ""
                           : std::string(", $asked using 1:2 with ") + kAskedKey.style +
                                 " linecolor rgb '" + kAskedKey.colour + "'") +
            "\n" + GnuplotPanel("Group delay", {0.05, 0.985, 0.055, 0.395}) +
            GnuplotFrequencyAxis() +
            GnuplotValueAxis(
                {.label = "ms", .step = 1, .alwaysLow = -1, .alwaysHigh = 4, .outliers = 0.002},
                allDelays) +
            Plot("$delay") + "\n",
        png);
}

namespace {

constexpr size_t kBands = kBandCount;

// The colours from the lowest band to the highest: dark purple, green, orange.
constexpr std::array<const char*, kBands> kColours{"#440154", "#482878", "#3e4a89", "#31688e",
                                                   "#26828e", "#1f9e89", "#35b779", "#8fb52a",
                                                   "#d9a400", "#d55e00"};

struct Panel {
    double level;
    const char* heading;
    GnuplotPlace place;
};
constexpr std::array<Panel, 4> kPanels{{
    {0.5, "Level +0.5: all ten together give +6.0 dB", {0.05, 0.49, 0.49, 0.85}},
    {1, "Level +1: all ten together give +9.5 dB", {0.55, 0.985, 0.49, 0.85}},
    {-0.5, "Level -0.5: all ten together give -6.0 dB", {0.05, 0.49, 0.055, 0.395}},
    {-1, "Level -1: all ten together are silent", {0.55, 0.985, 0.055, 0.395}},
}};
constexpr double kLowestDb = -24, kHighestDb = 12;

std::string BandName(size_t band, double rateHz) {
    const std::string hertz = std::to_string(std::lround(BandHz(band, rateHz)));
    if (band == 0) return "0: below " + hertz + " Hz";
    return std::to_string(band) + ": " + hertz + " Hz";
}

}  // namespace

void DrawBands(const BandsInput& input, const PngFile& png) {
    const std::vector<double> grid = FrequencyGrid(input.rateHz);
    std::vector<GnuplotKey> key;
    std::array<std::string, kBands> names;
    for (size_t band = 0; band < kBands; ++band) {
        names.at(band) = BandName(band, input.rateHz);
        key.push_back({"lines linewidth 2", kColours.at(band), names.at(band).c_str()});
    }
    std::string panels;
    for (const Panel& panel : kPanels) {
        std::vector<std::vector<double>> columns{grid};
        for (size_t band = 0; band < kBands; ++band) {
            Settings::Levels levels{};
            levels.at(band) = panel.level;
            const MeasuredResponse response =
                MeasureResponse(input.chainWith(levels), 1, input.rateHz);
            std::vector<double>& column = columns.emplace_back();
            for (const double hz : grid) column.push_back(MagnitudeDb(response, hz));
        }
        const std::string data = "$bands" + std::to_string(&panel - kPanels.data());
        panels += GnuplotData(data, columns) + GnuplotPanel(panel.heading, panel.place) +
                  GnuplotFrequencyAxis() +
                  GnuplotValueAxis({.label = "dB",
                                    .step = 3,
                                    .alwaysLow = kLowestDb,
                                    .alwaysHigh = kHighestDb,
                                    .reach = kHighestDb - kLowestDb},
                                   {}) +
                  "plot 0 linecolor rgb '" + kGrey + "'";
        for (size_t band = 0; band < kBands; ++band)
            panels += ", " + data + " using 1:" + std::to_string(band + 2) +
                      " with lines linewidth 2 linecolor rgb '" + kColours.at(band) + "'";
        panels += "\n";
    }
    RunGnuplot(
        GnuplotPage("Each equalizer band alone",
                    {"Measured with pink noise at " + std::to_string(std::lround(input.rateHz)) +
                     " Hz; the frequencies are in proportion to the rate. A band alone moves its "
                     "neighbours the other way, band 9 everything below 5 kHz."},
                    key) +
            panels,
        png);
}
