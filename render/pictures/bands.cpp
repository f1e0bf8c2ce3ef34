#include "render/pictures/bands.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

namespace {

constexpr size_t kBands = kBandCount;

// From the lowest band to the highest, of one lightness: dark purple to green to orange.
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

bool DrawBands(const BandsInput& input, const std::string& pngPath, std::string* error) {
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
            const std::optional<MeasuredResponse> response = MeasureResponse(
                [&](const std::vector<int16_t>& in) { return input.chain(levels, in); }, 1,
                input.rateHz);
            if (!response) {
                *error = "the effect refused the test signal";
                return false;
            }
            std::vector<double>& column = columns.emplace_back();
            for (const double hz : grid) column.push_back(MagnitudeDb(*response, hz));
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
    return RunGnuplot(
        GnuplotPage("Each equalizer band alone",
                    {"Measured with pink noise at " + std::to_string(std::lround(input.rateHz)) +
                     " Hz; the frequencies are in proportion to the rate. A band alone moves its "
                     "neighbours the other way, band 9 everything below 5 kHz."},
                    key) +
            panels,
        pngPath, error);
}
