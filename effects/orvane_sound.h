// The sound enhancer on interleaved audio, mono or stereo, in place.
//
//   bands    low < 150 Hz < band < 1800 Hz < high: 255-tap linear-phase FIR filters with a
//   rectangular
//            window, which add up to a delay of 127 frames
//   offsets  band is delayed by another 0.2 ms and low by 2.85 ms (8 and 125 frames at 44100 Hz)
//   sum      high * process + band * 1.1 + low * 0.95 (double variant: band and low * 1)
//   contour  a resonant 55 Hz low-pass of the sum of the channels is added to every channel
//
// The enhancer works on blocks of 770 frames and buffers input and output. A call may bring any
// number of frames. It gets the same number of processed frames back, or none if too few are ready.
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
#include "dsp/samples.h"
#include "dsp/softfloat/contour_mix.h"
#include "dsp/wave_buffer.h"
#include "platform/export.h"
#include "table/parameters.h"

// The differences between the variants. The weights of the float variant are tuned. With a process
// amount of 1, the middle band is 0.8 dB above the high band, and the low band 0.4 dB below it.
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

// `Sample` is the type in the buffers between the steps; `Real` is the type of block arithmetic.
template <typename Sample, typename Real>
class ORVANE_API OrvaneSound {
public:
    // Input and output buffers get room for at least `capacityFrames` frames.
    explicit OrvaneSound(uint32_t capacityFrames);
    ~OrvaneSound();

    // Sets one parameter of the table in the table's units; a switch is off at 0. Ignores
    // parameters that aren't the enhancer's.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Returns true if the setting changed. Switching the float variant on clears the history; the
    // double variant keeps it.
    bool SetEnable(bool enable);
    // Sets the rate in Hz. A new rate designs the filters and clears the history.
    void SetSamplingRate(uint32_t rateHz);
    // Sets the number of channels, 1 or 2; ignores others. A new number replaces the buffers and
    // clears the history.
    void SetChannels(uint32_t count);
    // Sets the linear gain of the high band, from the next block on. Ignores values that aren't
    // finite.
    void SetProcess(float amount);
    // Sets the contour's quality factor to level + 0.1. A factor that isn't positive becomes the
    // smallest one that gives a stable filter. Ignores values that aren't finite. Clears the
    // contour's history.
    void SetLoContour(float level);

    // Clears the history, as in a new object with the same settings. Neither allocates nor designs
    // filters: everything it needs was made when rate and channels were set.
    void Reset();

    // Returns true if all memory was granted and everything is set up, so that Process works.
    bool GetPrepared() const;

    // Makes room so that Process with `frames` frames allocates nothing. Returns false if memory is
    // refused. Nothing is lost then, but Process must not be called with that many frames.
    bool Reserve(uint32_t frames);

    // Replaces n interleaved frames by n processed frames and returns n. If fewer are ready, leaves
    // `samples` unchanged and returns 0. If disabled, leaves `samples` unchanged and returns n.
    uint32_t Process(int16_t* samples, uint32_t n);
    uint32_t Process(float* samples, uint32_t n);
    uint32_t Process(double* samples, uint32_t n);

    // Processes every whole block in the input buffer. Returns the number of frames left there.
    uint32_t ProcessBuffer();

    // The steps of Process, for a chain that interleaves the contour's recurrence with others. They
    // need no copy of the frames.
    // - Input returns where the chain writes n frames, for which Reserve made room. While disabled,
    //   it returns `samples`.
    // - ProcessBands, with the pointer from Input, does everything but the contour. It returns n
    //   processed frames, or null if fewer are ready. The caller may overwrite them.
    // - Begin takes chunks of at most kChunkFrames of the returned frames, in order. Chunk::Rest()
    //   is the run that is left (dsp/runs.h), and Finish adds the contour.
    // - Drop discards the returned frames.
    static constexpr bool kContourLast = std::is_same_v<Real, float>;
    struct ORVANE_LOCAL Chunk {
        auto Rest() { return Beside{run, count}; }
        BiquadRun<float> run;
        // The number of frames at the front that already have their contour, and of those that need
        // it.
        size_t done = 0, count = 0;
        alignas(Lanes) float sums[kChunkFrames];
    };
    ORVANE_LOCAL float* Input(float* samples);
    ORVANE_LOCAL float* ProcessBands(float* samples, uint32_t n);
    ORVANE_LOCAL void Begin(Chunk& chunk, const float* frames, size_t count);
    ORVANE_LOCAL void Finish(const Chunk& chunk, float* frames);
    ORVANE_LOCAL void Drop(uint32_t n);

private:
    static constexpr uint32_t kKernelLength = 255, kBlock = 770;  // taps; frames
    static constexpr size_t kPairs = kBlock / 2;                  // of samples, in a block
    static constexpr size_t kTransformPairs = (kBlock + kKernelLength - 1) / 2;
    static constexpr uint32_t kMaxCall = 2048;  // frames for which Process doesn't allocate
    static_assert(kBlock == BandFilters<Real>::BlockLengthFor(kKernelLength) && kBlock % 2 == 0);
    using Contour = Biquad<Real, Real>;

    // The state of one channel.
    struct ORVANE_LOCAL Channel {
        Planar<Real> Block() { return {block.data(), block.data() + block.size() / 2}; }

        OwnedArray<Real> block;  // planar: first the block's samples, then its high band
        PlanarDelay<Real> bandDelay, lowDelay;
        BandTails<Real> tails;
    };

    ORVANE_LOCAL void SetUpBuffers();
    ORVANE_LOCAL void SetUpChannels();
    ORVANE_LOCAL void DesignFilters();
    ORVANE_LOCAL void DesignContour();
    ORVANE_LOCAL void RunBlock(const float* frames);
    ORVANE_LOCAL void PushBands();
    ORVANE_LOCAL void PushBandsAndContour();
    ORVANE_LOCAL void AddContour(uint32_t n);
    ORVANE_LOCAL void AddContourToWaiting();
    template <typename External>
    ORVANE_LOCAL uint32_t InPlace(External* samples, uint32_t n);

    std::unique_ptr<WaveBuffer_R32> inputBuffer, outputBuffer;
    BandFilters<Real> filters;
    Channel state[kMaxChannels];
    bool channelsSetUp = false;
    Contour loContourFilter;
    uint32_t contoured = 0;  // frames at the front of the output buffer that have their contour
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
