#include "client/tone.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace {

constexpr double kFloorDb = -120;
constexpr double kLowestHz = 20, kHighestHz = 20000;
// The highest frequency of a fit, as a part of the rate. Resamplers and converters attenuate what
// is above it.
constexpr double kHighestOfRate = 0.45;
constexpr double kMiddleLowestHz = 60, kMiddleHighestHz = 8000;
constexpr double kOutsideWeight = 1.0 / 16;  // of the square of a deviation, for ToneFocus::kMiddle
constexpr double kPerOctave = 24;            // frequencies at which a fit looks
constexpr double kMostGain = 3;              // linear, of level 1
constexpr int kRounds = 8;  // of reweighting; two suffice for curves that ten bands can give

constexpr size_t kBands = kBandCount;
using Terms = std::array<double, kBands>;

double GainOfLevel(double level) {
    return level < 0 ? 1 + level : 1 + 2 * level;
}
double LevelOfGain(double gain) {
    return gain < 1 ? gain - 1 : (gain - 1) / 2;
}
double Sendable(double gain) {
    return GainOfLevel(ParameterOf(PARAM_EQUALIZER_BANDLEVEL).Sendable(LevelOfGain(gain)));
}

double Decibels(double gain) {
    return std::max(20 * std::log10(std::abs(gain)), kFloorDb);
}

// Returns A(k, f) of tone.h.
double Average(size_t k, double hz, double rateHz) {
    const double halfWidth = std::exp2(static_cast<double>(k));
    const double halfAngle = std::numbers::pi * hz / rateHz;
    return std::sin((2 * halfWidth + 1) * halfAngle) / (2 * halfWidth * std::sin(halfAngle));
}

Terms TermsAt(double hz, double rateHz) {
    Terms terms;
    for (size_t band = 0; band < kBands; ++band) terms[band] = BandTerm(band, hz, rateHz);
    return terms;
}

double Dot(const Terms& a, const Terms& b) {
    double sum = 0;
    for (size_t band = 0; band < kBands; ++band) sum += a[band] * b[band];
    return sum;
}

// Finds the gains within 0 and kMostGain that minimise the sum over f of
// weight * (dot(gains, terms) - 1)^2, by coordinate descent. A sum of squares has no other local
// minimum, and bounds on single gains do not disturb the descent.
class LeastSquares {
public:
    void Add(const Terms& terms, double weight) {
        for (size_t i = 0; i < kBands; ++i) {
            for (size_t k = 0; k < kBands; ++k) products[i][k] += weight * terms[i] * terms[k];
            targets[i] += weight * terms[i];
        }
    }

    void Descend(Terms* gains) const {
        DescendBy([](double gain) { return gain; }, gains);
    }
    // Descends over the gains that can be sent, starting from those nearest to `gains`.
    void DescendInSteps(Terms* gains) const {
        std::transform(gains->begin(), gains->end(), gains->begin(), Sendable);
        DescendBy(Sendable, gains);
    }

private:
    template <typename Round>
    void DescendBy(Round round, Terms* gains) const {
        constexpr int kMostTurns = 2000;
        constexpr double kStill = 1e-7;
        double change = 1;
        for (int turn = 0; turn < kMostTurns && change > kStill; ++turn) {
            change = 0;
            for (size_t band = 0; band < kBands; ++band) {
                double& gain = (*gains)[band];
                const double best =
                    gain + (targets[band] - Dot(products[band], *gains)) / products[band][band];
                const double next = round(std::clamp(best, 0.0, kMostGain));
                change = std::max(change, std::abs(next - gain));
                gain = next;
            }
        }
    }

    std::array<Terms, kBands> products{};
    Terms targets{};
};

// Returns the weight w for which w * (ratio - 1)^2 has the slope of log(ratio)^2, with w held
// fixed. So least squares of ratios minimise the deviation in dB. Ratios more than 20 dB off count
// as 20 dB off.
double DecibelWeight(double ratio) {
    const double r = std::clamp(std::abs(ratio), 0.1, 10.0);
    return std::abs(r - 1) < 1e-3 ? 1 : std::log(r) / (r * (r - 1));
}

bool IsMiddle(double hz) {
    return hz >= kMiddleLowestHz && hz <= kMiddleHighestHz;
}

double FocusWeight(ToneFocus focus, double hz) {
    return focus == ToneFocus::kEven || IsMiddle(hz) ? 1 : kOutsideWeight;
}

double HighestHz(double rateHz) {
    return std::min(kHighestHz, kHighestOfRate * rateHz);
}

// Calls `visit` with every frequency that a fit looks at.
template <typename Visit>
void ForEachHz(double rateHz, Visit visit) {
    for (int i = 0;; ++i) {
        const double hz = kLowestHz * std::exp2(i / kPerOctave);
        if (hz > HighestHz(rateHz)) return;
        visit(hz);
    }
}

}  // namespace

double BandTerm(size_t band, double hz, double rateHz) {
    const size_t k = kBands - 1 - band;  // index of the wider of the band's two averages
    const double narrower = k == 0 ? 1 : Average(k - 1, hz, rateHz);
    return band == 0 ? narrower : narrower - Average(k, hz, rateHz);
}

double ToneDb(const Settings::Levels& levels, double hz, double rateHz) {
    Terms gains;
    std::transform(levels.begin(), levels.end(), gains.begin(), GainOfLevel);
    return Decibels(Dot(gains, TermsAt(hz, rateHz)));
}

double BandHz(size_t band, double rateHz) {
    const double stepRatio = std::exp2(1.0 / 1000);
    const double highestHz = rateHz / 2;
    double found = highestHz, largest = BandTerm(band, highestHz, rateHz);
    for (double hz = highestHz * std::exp2(-10); hz < highestHz; hz *= stepRatio) {
        const double term = BandTerm(band, hz, rateHz);
        if (band == 0 && term <= 0) return hz;
        if (band == 0 || term <= largest) continue;
        largest = term;
        found = hz;
    }
    return found;
}

double CurveDb(std::span<const TonePoint> points, double hz) {
    const auto above = std::find_if(points.begin(), points.end(),
                                    [hz](const TonePoint& point) { return point.hz > hz; });
    if (above == points.begin()) return points.front().db;
    if (above == points.end()) return points.back().db;
    const TonePoint& from = *std::prev(above);
    const double part = std::log(hz / from.hz) / std::log(above->hz / from.hz);
    return from.db + part * (above->db - from.db);
}

ToneFit FitTone(std::span<const TonePoint> points, double rateHz, ToneFocus focus) {
    Terms gains;
    gains.fill(1);
    for (int round = 0; round < kRounds; ++round) {
        LeastSquares squares;
        ForEachHz(rateHz, [&](double hz) {
            const double wanted = std::pow(10, CurveDb(points, hz) / 20);
            Terms terms = TermsAt(hz, rateHz);
            for (double& term : terms) term /= wanted;
            const double weight = round == 0 ? 1 : DecibelWeight(Dot(gains, terms));
            squares.Add(terms, weight * FocusWeight(focus, hz));
        });
        squares.Descend(&gains);
        if (round + 1 == kRounds) squares.DescendInSteps(&gains);
    }

    ToneFit fit{};
    fit.focus = focus;
    std::transform(gains.begin(), gains.end(), fit.levels.begin(), LevelOfGain);
    double sum = 0, count = 0, middleSum = 0, middleCount = 0;
    const auto deviation = [&](double hz) {
        const double db = ToneDb(fit.levels, hz, rateHz) - CurveDb(points, hz);
        if (std::abs(db) >= std::abs(fit.worstDb)) {
            fit.worstDb = db;
            fit.worstHz = hz;
        }
        return db;
    };
    ForEachHz(rateHz, [&](double hz) {
        const double db = deviation(hz);
        sum += db * db;
        ++count;
        if (!IsMiddle(hz)) return;
        middleSum += db * db;
        ++middleCount;
    });
    for (const TonePoint& point : points)
        if (point.hz >= kLowestHz && point.hz <= HighestHz(rateHz)) deviation(point.hz);
    fit.rmsDb = std::sqrt(sum / count);
    fit.middleRmsDb = std::sqrt(middleSum / middleCount);
    fit.peakDb = kFloorDb;
    for (double hz = rateHz / 2; hz > 1; hz *= std::exp2(-1 / kPerOctave))
        fit.peakDb = std::max(fit.peakDb, ToneDb(fit.levels, hz, rateHz));
    return fit;
}

void ApplyTone(const ToneFit& fit, bool headroom, Settings* settings) {
    for (size_t band = 0; band < kBands; ++band) settings->SetBand(band, fit.levels[band]);
    const Parameter& gain = ParameterOf(PARAM_OUTPUT_GAIN);
    const double most =
        std::floor(std::pow(10, -fit.peakDb / 20) * gain.wireScale) / gain.wireScale;
    if (headroom && settings->Get(gain.id) > most) settings->Set(gain.id, most);
}
