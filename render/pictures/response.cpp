#include "render/pictures/response.h"

#include <algorithm>
#include <cmath>

#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

namespace {

// A group delay is drawn where the magnitude is no further below the curve's largest.
constexpr double kDelayFloorDb = 40;
constexpr double kFloorDb = -120;  // stands for silence

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

// Both together lie below, wide, and show beside a part that they equal.
const std::vector<GnuplotKey> kKey{{"lines linewidth 2", kBlue, "equalizer"},
                                   {"lines linewidth 2", kOrange, "enhancer"},
                                   {"lines linewidth 5", "#b8b8b8", "both together"}};

// The curves of columns 2 to 4, in the order of the key.
std::string Plot(const std::string& data) {
    std::string plot = std::string("plot 0 linecolor rgb '") + kGrey + "'";
    for (size_t i = kKey.size(); i-- > 0;)
        plot += ", " + data + " using 1:" + std::to_string(i + 2) + " with " + kKey[i].style +
                " linecolor rgb '" + kKey[i].colour + "'";
    return plot + "\n";
}

}  // namespace

bool DrawResponse(const ResponseInput& input, const std::string& pngPath, std::string* error) {
    const std::vector<double> grid = FrequencyGrid(input.rateHz);
    std::vector<std::vector<double>> magnitudes{grid}, delays{grid};
    std::vector<double> allMagnitudes, allDelays;
    for (const SampleChain* chain : {&input.equalizerOnly, &input.enhancerOnly, &input.both}) {
        const std::optional<MeasuredResponse> response =
            MeasureResponse(*chain, input.channels, input.rateHz);
        if (!response) {
            *error = "the effect refused the test signal";
            return false;
        }
        const Curve curve = CurveOf(*response, grid);
        magnitudes.push_back(curve.magnitudeDb);
        delays.push_back(curve.delayMs);
        allMagnitudes.insert(allMagnitudes.end(), curve.magnitudeDb.begin(),
                             curve.magnitudeDb.end());
        allDelays.insert(allDelays.end(), curve.delayMs.begin(), curve.delayMs.end());
    }
    return RunGnuplot(
        GnuplotPage(
            "Response of equalizer and enhancer",
            {input.settings,
             std::string("Measured with pink noise") +
                 (input.channels == 2 ? ", the same on both channels" : "") +
                 ", smoothed over 1/24 octave; playback gain off. Delay relative to the high "
                 "band."},
            kKey) +
            GnuplotData("$magnitude", magnitudes) + GnuplotData("$delay", delays) +
            GnuplotPanel("Magnitude", {0.05, 0.985, 0.49, 0.85}) + GnuplotFrequencyAxis() +
            GnuplotValueAxis(
                {.label = "dB", .step = 3, .alwaysLow = -6, .alwaysHigh = 6, .reach = 60},
                allMagnitudes) +
            Plot("$magnitude") + GnuplotPanel("Group delay", {0.05, 0.985, 0.055, 0.395}) +
            GnuplotFrequencyAxis() +
            GnuplotValueAxis(
                {.label = "ms", .step = 1, .alwaysLow = -1, .alwaysHigh = 4, .outliers = 0.002},
                allDelays) +
            Plot("$delay"),
        pngPath, error);
}
