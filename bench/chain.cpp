// Time of the whole chain, everything on, and of each stage by itself, on buffers of 1024 stereo
// frames of music; then each stage as a share of the chain. Only these ratios say something beyond
// the machine at hand. For steady numbers: --benchmark_repetitions=9
// --benchmark_enable_random_interleaving=true; the shares take each one's fastest repetition.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>

#include "bench/music.h"
#include "dsp/wave_buffer.h"
#include "effects/fir_equalizer.h"
#include "effects/limiter.h"
#include "effects/orvane_sound.h"
#include "effects/playback_gain.h"
#include "host/entry_points.h"
#include "tests/library_under_test.h"
#include "tests/muted_log.h"

namespace {

constexpr uint32_t kFrames = 1024;
constexpr size_t kSamples = size_t{2} * kFrames;
constexpr const char* kChain = "chain";

// The music, buffer by buffer, round and round.
class Source {
public:
    const int16_t* Next() {
        if (at + kSamples > music.size()) at = 0;
        at += kSamples;
        return music.data() + at - kSamples;
    }
    // Full scale 1.0; valid until the next call.
    float* NextFloats() {
        const int16_t* const samples = Next();
        for (size_t i = 0; i < kSamples; ++i) floats[i] = static_cast<float>(samples[i]) / 32767.0F;
        return floats.data();
    }

private:
    const std::vector<int16_t> music = ReadMusic();
    size_t at = 0;
    std::vector<float> floats = std::vector<float>(kSamples);
};

void WholeChain(benchmark::State& state) {
    Source source;
    std::vector<int16_t> out(kSamples);
    const MutedLog muted;
    Instance instance(AELI);
    instance.Start(44100, 2);
    for (auto _ : state) instance.Process(source.Next(), out.data(), kFrames);
}

void PlaybackGainStage(benchmark::State& state) {
    Source source;
    std::vector<int16_t> out(kSamples);
    PlaybackGain playbackGain;
    playbackGain.SetMaxGainFactor(4.0F);
    playbackGain.SetEnable(true);
    for (auto _ : state) playbackGain.Process(source.Next(), out.data(), kFrames);
}

void ConversionStage(benchmark::State& state) {
    Source source;
    std::vector<int16_t> out(kSamples);
    WaveBuffer_R32 buffer(2, kFrames);
    for (auto _ : state) {
        buffer.PushSamples(source.Next(), kFrames);
        buffer.PopSamples(out.data(), kFrames, false);
    }
}

void EqualizerStage(benchmark::State& state) {
    Source source;
    FIREqualizer_R32R32 equalizer;
    for (int band = 0; band < 10; ++band)
        equalizer.SetBandLevel(band, 0.15F * static_cast<float>(band) - 0.6F);
    equalizer.SetEnable(true);
    for (auto _ : state) equalizer.Process(source.NextFloats(), kFrames);
}

void EnhancerStage(benchmark::State& state) {
    Source source;
    OrvaneSound_R32R32 enhancer(0);
    enhancer.SetProcess(1.8F);
    enhancer.SetLoContour(0.7F);
    enhancer.SetEnable(true);
    for (auto _ : state) enhancer.Process(source.NextFloats(), kFrames);
}

void LimiterStage(benchmark::State& state) {
    Source source;
    Limiter limiters[2];
    for (Limiter& limiter : limiters) limiter.SetGate(0.05F);  // at work nearly all the time
    for (auto _ : state) {
        float* const samples = source.NextFloats();
        for (size_t i = 0; i < kSamples; i += 2) {
            samples[i] = limiters[0].Process(samples[i]);
            samples[i + 1] = limiters[1].Process(samples[i + 1]);
        }
        benchmark::DoNotOptimize(samples);
    }
}

class ShareReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
            const double time = run.cpu_accumulated_time / static_cast<double>(run.iterations);
            const auto [known, isNew] = fastest.emplace(run.benchmark_name(), time);
            if (!isNew) known->second = std::min(known->second, time);
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void Finalize() override {
        if (!fastest.contains(kChain)) return;
        for (const auto& [name, time] : fastest)
            std::printf("%-20s %5.1f %% of the chain, %7.1f ns a frame\n", name.c_str(),
                        100 * time / fastest[kChain], 1e9 * time / kFrames);
    }

private:
    std::map<std::string, double> fastest;  // seconds an iteration
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::RegisterBenchmark(kChain, WholeChain);
    benchmark::RegisterBenchmark("playback gain", PlaybackGainStage);
    benchmark::RegisterBenchmark("conversions", ConversionStage);
    benchmark::RegisterBenchmark("equalizer", EqualizerStage);
    benchmark::RegisterBenchmark("enhancer", EnhancerStage);
    benchmark::RegisterBenchmark("limiters", LimiterStage);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    ShareReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
