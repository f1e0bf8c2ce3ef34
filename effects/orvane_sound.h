// The sound enhancer on interleaved audio, mono or stereo, in place.
//
//   bands    low < 150 Hz < band < 1800 Hz < high: 255-tap linear-phase FIR filters, rectangular
//            window, that add up to a delay of 127 frames
//   offsets  band 0.2 ms and low 2.85 ms behind high (8 and 125 frames at 44100 Hz)
//   sum      high * process + band * 1.1 + low * 0.95 (double variant: band and low * 1)
//   contour  a resonant 55 Hz low-pass of the sum of the channels is added to every channel
//
// Works on blocks of 770 frames, buffering input and output, so that a call may bring any number of
// frames: it gets as many processed ones back, or none while too few are ready.
//
// Delay while enabled: 127 frames, plus a whole number of calls' frames that depends on the call
// size (256: 768 frames, 1024: 1024, 770: none). Allocates: construction, SetSamplingRate,
// SetChannels, Reserve, and Process beyond 2048 frames a call. Thread: no lock of its own; the
// owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "dsp/band_filters.h"
#include "dsp/biquad.h"
#include "dsp/owned_array.h"
#include "dsp/planar_delay.h"
#include "dsp/runs.h"
#include "dsp/softfloat/contour_mix.h"
#include "dsp/stream.h"
#include "dsp/wave_buffer.h"
#include "platform/export.h"
#include "table/parameters.h"

// What the variants don't share. The weights of the float variant are tuned: with a process amount
// of 1 the middle band stands 0.8 dB above the high one and the low band 0.4 dB below it.
template <typename Real>
struct OrvaneSoundVariant;
template <>
struct OrvaneSoundVariant<float> {
    static constexpr BandWeights<float> kWeights = {.high = 1, .band = 1.1F, .low = 0.95F};
    static constexpr bool kForgetsWhenSwitchedOn = true;
};
template <>
struct OrvaneSoundVariant<double> {
    static constexpr BandWeights<double> kWeights = {.high = 1, .band = 1, .low = 1};
    static constexpr bool kForgetsWhenSwitchedOn = false;
};

// Sample: what the buffers hold between the steps. Real: type of block arithmetic.
template <typename Sample, typename Real>
class ORVANE_API OrvaneSound {
public:
    // capacityFrames: least room of the input and output buffers.
    explicit OrvaneSound(uint32_t capacityFrames);
    ~OrvaneSound();

    // One parameter of the table, in its units; a switch is off at 0. Others are ignored.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Returns whether the setting changed. Switching the float variant on forgets the history; the
    // double variant keeps it.
    bool SetEnable(bool enable);
    // Hz. A new rate designs the bands and forgets the history.
    void SetSamplingRate(uint32_t rateHz);
    // 1 or 2, others are ignored. A new count replaces the buffers and forgets the history.
    void SetChannels(uint32_t count);
    // Gain of the high band, linear, from the next block on. Ignored unless finite.
    void SetProcess(float amount);
    // The contour's quality factor is level + 0.1. A factor that is not positive becomes the
    // smallest that gives a stable filter. Ignored unless finite. Restarts the contour's history.
    void SetLoContour(float level);

    // Forgets the history, as newly made with the same settings. Neither allocates nor designs:
    // everything it needs was made when rate and channels were set.
    void Reset();

    // Whether everything was granted and set up, so that Process works.
    bool GetPrepared() const;

    // Makes room so that Process(.., frames) allocates nothing. False if memory is refused; nothing
    // is lost then, and Process must not be called with that many.
    bool Reserve(uint32_t frames);

    // `samples`: interleaved, n frames, replaced by n processed frames: returns n; or left alone
    // while fewer are ready: returns 0. Disabled: leaves them alone and returns n.
    uint32_t Process(int16_t* samples, uint32_t n);
    uint32_t Process(float* samples, uint32_t n);
    uint32_t Process(double* samples, uint32_t n);

    // Processes every whole block that waits in the input buffer; returns the frames left there.
    uint32_t ProcessBuffer();

    // Process in steps, for a chain that runs other recurrences beside the contour's. First all but
    // the contour; then the contour of the frames that came back, in order, up to kChunkFrames at a
    // time: begun, run (dsp/runs.h), added.
    static constexpr bool kContourLast = std::is_same_v<Real, float>;
    struct ORVANE_LOCAL Chunk {
        auto Rest() { return Beside{run, count}; }
        BiquadRun<float> run;
        // Frames at the front that have their contour, and those that want it.
        size_t done = 0, count = 0;
        alignas(Lanes) float sums[kChunkFrames];
    };
    ORVANE_LOCAL uint32_t ProcessBands(float* samples, uint32_t n);
    ORVANE_LOCAL void Begin(Chunk& chunk, const float* frames, size_t count);
    ORVANE_LOCAL void Finish(const Chunk& chunk, float* frames);

private:
    static constexpr uint32_t kKernelLength = 255, kBlock = 770;  // taps; frames
    static constexpr size_t kPairs = kBlock / 2;                  // of samples, in a block
    static constexpr size_t kTransformPairs = (kBlock + kKernelLength - 1) / 2;
    static constexpr uint32_t kMaxCall = 2048;  // frames for which Process doesn't allocate
    static_assert(kBlock == BandFilters<Real>::BlockLengthFor(kKernelLength) && kBlock % 2 == 0);
    using Contour = Biquad<Real, Real>;

    // What belongs to one channel.
    struct ORVANE_LOCAL Channel {
        Planar<Real> Block() { return {block.data(), block.data() + block.size() / 2}; }

        OwnedArray<Real> block;  // planar: a block's samples, later its high band
        PlanarDelay<Real> bandDelay, lowDelay;
        BandTails<Real> tails;
    };

    ORVANE_LOCAL void SetUpBuffers();
    ORVANE_LOCAL void SetUpChannels();
    ORVANE_LOCAL void DesignFilters();
    ORVANE_LOCAL void DesignContour();
    ORVANE_LOCAL void RunBlock();
    ORVANE_LOCAL float* AppendBlock();
    ORVANE_LOCAL void PushBands();
    ORVANE_LOCAL void PushBandsAndContour();
    ORVANE_LOCAL void AddContour(uint32_t n);
    ORVANE_LOCAL void AddContourToWaiting();
    template <bool withContour, typename External>
    ORVANE_LOCAL uint32_t InPlace(External* samples, uint32_t n);

    std::unique_ptr<WaveBuffer_R32> inputBuffer, outputBuffer;
    BandFilters<Real> filters;
    Channel state[kMaxChannels];
    bool channelsSetUp = false;
    Contour loContourFilter;
    uint32_t contoured = 0;  // frames at the front of the output that have their contour
    bool enabled = false;
    BandWeights<Real> weights = OrvaneSoundVariant<Real>::kWeights;
    Real loContour = 0;
    uint32_t bufferCapacity;  // frames
    uint32_t channels = 2;
    uint32_t samplingRate = 44100;  // Hz
    uint32_t blockSize = 0;         // frames; 0 while not prepared
};

extern template class OrvaneSound<float, float>;
extern template class OrvaneSound<float, double>;
using OrvaneSound_R32R32 = OrvaneSound<float, float>;
using OrvaneSound_R32R64 = OrvaneSound<float, double>;
