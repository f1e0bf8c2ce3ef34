#include "render/match.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "render/audio/conversion.h"
#include "render/audio/stream_meter.h"

namespace {

constexpr int kMostTrials = 12;
constexpr double kGoodEnoughLu = 0.05;
constexpr double kSilenceLufs = -100;
// The least slope of loudness over gain, both in decibels, while the limiters work.
constexpr double kLeastSlope = 0.1;

double Decibels(double gain) {
    return 20 * std::log10(gain);
}

double SourceLufs(const Runs& runs) {
    StreamMeter meter(Metering::kLoudness);
    for (const auto& open : runs) {
        const std::unique_ptr<SampleReader> reader = open();
        meter.StartRun(reader->Channels(), reader->RateHz());
        for (auto samples = reader->Read(); !samples.empty(); samples = reader->Read())
            meter.Add(samples);
    }
    return meter.Finish().loudness.integratedLufs;
}

// Measures the chain's result, before it is resampled for the output.
double ResultLufs(const RenderJob& job, const Runs& runs, double gain,
                  const EffectLibrary& library) {
    StreamMeter noMeter(Metering::kNothing), meter(Metering::kLoudness);
    NoWriter noWriter;
    for (const auto& open : runs) {
        const std::unique_ptr<SampleReader> reader = open();
        Settings settings = job.settings;
        job.tone.Grant(ChainRateHz(reader->RateHz()), &settings);
        settings.Set(PARAM_OUTPUT_GAIN, gain);
        ChainRun run(job, library, settings, *reader, noMeter);
        run.Play(noWriter, run.Format().rateHz, meter);
    }
    return meter.Finish().loudness.integratedLufs;
}

}  // namespace

MatchedGain MatchGain(double startGain, double wantedLufs,
                      const std::function<double(double gain)>& loudnessOf) {
    const Parameter& parameter = ParameterOf(PARAM_OUTPUT_GAIN);
    // Gains are integers on the wire. Every gain up to `low` is too soft, and every gain from
    // `high` on is too loud.
    int32_t low = 0, high = parameter.OnWire(parameter.maximum) + 1;
    int32_t trial = std::clamp(parameter.OnWire(startGain), low + 1, high - 1);
    MatchedGain best{}, last{};
    double slope = 1;
    for (int trials = 0; trials < kMostTrials && high - low > 1; ++trials) {
        const double gain = static_cast<double>(trial) / parameter.wireScale;
        const MatchedGain now{gain, std::max(loudnessOf(gain), kSilenceLufs)};
        const double missing = wantedLufs - now.reachedLufs;
        if (trials == 0 || std::abs(missing) < std::abs(wantedLufs - best.reachedLufs)) best = now;
        if (std::abs(missing) < kGoodEnoughLu) break;
        (missing > 0 ? low : high) = trial;
        if (trials > 0)
            slope = (now.reachedLufs - last.reachedLufs) / (Decibels(gain) - Decibels(last.gain));
        last = now;
        const double next = gain * std::pow(10, missing / std::clamp(slope, kLeastSlope, 1.0) / 20);
        const double reach = parameter.maximum;
        trial = std::clamp(parameter.OnWire(std::min(next, reach)), low + 1,
                           std::max(high - 1, low + 1));
    }
    return best;
}

std::optional<Match> MatchPiece(const RenderJob& job, const Runs& runs,
                                const EffectLibrary& library) {
    const double sourceLufs = SourceLufs(runs);
    if (!std::isfinite(sourceLufs)) return std::nullopt;
    const double wantedLufs = job.match->lufs.value_or(sourceLufs);
    const MatchedGain found =
        MatchGain(job.settings.Get(PARAM_OUTPUT_GAIN), wantedLufs,
                  [&](double gain) { return ResultLufs(job, runs, gain, library); });
    return Match{wantedLufs, found.gain};
}
