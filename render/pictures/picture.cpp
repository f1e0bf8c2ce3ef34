#include "render/pictures/picture.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

namespace {

// Above this residual a measured response is no more than an estimate.
constexpr double kRoughDb = -20;
constexpr double kFloorDb = -120;  // stands for silence
// Loudness below which music counts as silent: no gain is drawn.
constexpr double kSilenceLufs = -60;

// Where the four panels lie: frequency at the left, time at the right.
constexpr GnuplotPlace kTopLeft{0.05, 0.49, 0.49, 0.85}, kBottomLeft{0.05, 0.49, 0.055, 0.395};
constexpr GnuplotPlace kTopRight{0.55, 0.985, 0.49, 0.85}, kBottomRight{0.55, 0.985, 0.055, 0.395};

// "True peak -3.0 → -0.1 dBTP".
std::string Change(const char* name, double before, double after, const char* unit) {
    const auto text = [](double value) {
        char digits[32];
        snprintf(digits, sizeof digits, "%.1f", std::round(value * 10) / 10 + 0.0);  // no "-0.0"
        return std::isfinite(value) ? std::string(digits) : std::string("none");
    };
    return std::string(name) + ' ' + text(before) + " → " + text(after) + ' ' + unit;
}

const std::vector<GnuplotKey> kKey{{"lines linewidth 2", kBlue, "before"},
                                   {"lines linewidth 2", kOrange, "after"},
                                   {"filledcurves y=-1", kPaleOrange, "louder"},
                                   {"filledcurves y=-1", kPaleBlue, "softer"}};

// The curves of columns 2 (before) and 3 (after), and between them what became louder or softer.
std::string BeforeAndAfter(const std::string& data) {
    const auto curve = [&](const char* what, const char* colour) {
        return data + " using " + what + " linecolor rgb '" + colour + "'";
    };
    return "plot " + curve("1:2:3 with filledcurves below", kPaleOrange) + ", " +
           curve("1:2:3 with filledcurves above", kPaleBlue) + ", " +
           curve("1:2 with lines", kBlue) + ", " + curve("1:3 with lines", kOrange) + "\n";
}

// A curve of gain, filled down or up to the zero line.
std::string FromZero(const std::string& data) {
    const auto curve = [&](const char* style, const char* colour) {
        return data + " using 1:2 with " + style + " linecolor rgb '" + colour + "', ";
    };
    return "plot " + curve("filledcurves above y=0", kPaleOrange) +
           curve("filledcurves below y=0", kPaleBlue) + curve("lines", kInk) + "0 linecolor rgb '" +
           kGrey + "' notitle\n";
}

std::string SpectrumPanel(const PictureInput& input) {
    const Spectrum before = AverageSpectrum(input.before, input.channels, input.rateHz);
    const Spectrum after = AverageSpectrum(input.after, input.channels, input.rateHz);
    const std::vector<double> grid = FrequencyGrid(input.rateHz);
    std::vector<double> beforeDb, afterDb, all;
    for (const double frequency : grid) {
        const double low = frequency * std::exp2(-1.0 / 12), high = frequency * std::exp2(1.0 / 12);
        beforeDb.push_back(std::max(BandLevelDb(before, low, high), kFloorDb));
        afterDb.push_back(std::max(BandLevelDb(after, low, high), kFloorDb));
        all.insert(all.end(), {beforeDb.back(), afterDb.back()});
    }
    return GnuplotData("$spectrum", {grid, beforeDb, afterDb}) +
           GnuplotPanel("Spectrum: average level per sixth of an octave", kTopLeft) +
           GnuplotFrequencyAxis() +
           GnuplotValueAxis({.label = "dB (full-scale sine: 0)",
                             .step = 10,
                             .alwaysLow = -30,
                             .alwaysHigh = -30,
                             .reach = 80},
                            all) +
           BeforeAndAfter("$spectrum");
}

std::string ResponsePanel(const MeasuredResponse& response, double rateHz) {
    const std::vector<double> grid = FrequencyGrid(rateHz);
    std::vector<double> gainDb(grid.size());
    std::transform(grid.begin(), grid.end(), gainDb.begin(), [&](double frequency) {
        return std::max(MagnitudeDb(response, frequency), kFloorDb);
    });
    std::string heading = "Gain over frequency, measured with the playback gain off";
    if (response.residualDb > kRoughDb) heading += " (rough)";
    return GnuplotData("$response", {grid, gainDb}) + GnuplotPanel(heading, kBottomLeft) +
           GnuplotFrequencyAxis() +
           GnuplotValueAxis(
               {.label = "dB", .step = 3, .alwaysLow = -6, .alwaysHigh = 6, .reach = 60}, gainDb) +
           FromZero("$response");
}

std::string TimeAxis(double seconds) {
    const std::string axis = "unset mxtics\nset xrange [0:" + std::to_string(seconds) + "]\n";
    if (seconds < 20) return axis + "set xlabel 's' offset 0,0.5\n";
    return axis + "set xtics time format '%1tM:%02tS'\nset xlabel 'min:s' offset 0,0.5\n";
}

std::string LoudnessPanels(const LoudnessOverTime& before, const LoudnessOverTime& after,
                           double seconds) {
    const size_t count = std::min(before.momentaryLufs.size(), after.momentaryLufs.size());
    std::vector<double> times, beforeLufs, afterLufs, gains, all;
    for (size_t i = 0; i < count; ++i) {
        times.push_back(static_cast<double>(i) * before.stepSeconds);
        const double lufs = std::max(before.momentaryLufs[i], kFloorDb);
        beforeLufs.push_back(lufs);
        afterLufs.push_back(std::max(after.momentaryLufs[i], kFloorDb));
        all.insert(all.end(), {lufs, afterLufs.back()});
        gains.push_back(lufs < kSilenceLufs ? NAN : afterLufs.back() - lufs);
    }
    return GnuplotData("$loudness", {times, beforeLufs, afterLufs}) +
           GnuplotPanel("Loudness over time (momentary, 400 ms)", kTopRight) + TimeAxis(seconds) +
           GnuplotValueAxis({.label = "LUFS",
                             .step = 5,
                             .alwaysLow = -20,
                             .alwaysHigh = -20,
                             .reach = 60,
                             .outliers = 0.01},
                            all) +
           BeforeAndAfter("$loudness") + GnuplotData("$gain", {times, gains}) +
           GnuplotPanel("Gain over time: loudness after minus loudness before", kBottomRight) +
           TimeAxis(seconds) +
           GnuplotValueAxis({.label = "dB",
                             .step = 3,
                             .alwaysLow = -6,
                             .alwaysHigh = 6,
                             .reach = 60,
                             .outliers = 0.02},
                            gains) +
           FromZero("$gain");
}

}  // namespace

bool DrawPicture(const PictureInput& input, const std::string& pngPath, std::string* error) {
    if (input.before.empty() || input.after.empty()) {
        *error = input.title + ": no audio to draw";
        return false;
    }
    const std::optional<MeasuredResponse> response =
        MeasureResponse(input.chainWithoutPlaybackGain, input.channels, input.rateHz);
    if (!response) {
        *error = "the effect refused the test signal";
        return false;
    }
    const LoudnessOverTime before = MeasureLoudness(input.before, input.channels, input.rateHz);
    const LoudnessOverTime after = MeasureLoudness(input.after, input.channels, input.rateHz);
    const double seconds =
        static_cast<double>(input.before.size()) / (input.channels * input.rateHz);
    const std::string numbers =
        Change("Loudness", before.integratedLufs, after.integratedLufs, "LUFS") + " \u00b7 " +
        Change("Loudness range", before.rangeLu, after.rangeLu, "LU") + " \u00b7 " +
        Change("True peak", before.truePeakDb, after.truePeakDb, "dBTP");
    return RunGnuplot(GnuplotPage(input.title, {input.settings, numbers}, kKey) +
                          SpectrumPanel(input) + ResponsePanel(*response, input.rateHz) +
                          LoudnessPanels(before, after, seconds),
                      pngPath, error);
}
