// Makes random histories of one instance: calls, settings and samples that reach every path.
//
// A history depends only on its number and is computed with integers, so it is the same on every
// machine. Each history has a theme that aims at what selects a path. The themes are changes of the
// gate within the limiter's window, long quiet passages, and buffers that fill no vector or no
// block. Other themes change settings while frames wait, reset or configure the instance, or set
// values far out of range.
//
// Histories contain only calls whose result is defined, so that any implementation can be replayed.
// They set no contour at or below -0.1 and no configuration that is refused. At all their rates the
// sines of the weighting filter are rounded correctly by glibc and musl. At some other rates these
// libraries give different coefficients.
//
// Allocates: never. Thread: no state but its own.
#pragma once
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "platform/effect_api.h"
#include "table/parameters.h"
#include "table/stages.h"

// Digests are recorded for the histories from 0 to one less than this.
constexpr uint32_t kRecordedHistories = 400;

struct HistoryCall {
    enum Kind : int32_t { kConfigure, kCommand, kSet, kProcess };
    Kind kind;
    int32_t first;      // sampling rate in Hz, command code, parameter, or frames
    int32_t values[2];  // channels in [0], or the parameter's values
};

class History {
public:
    static constexpr uint32_t kMostFrames = 16385;  // of one call

    explicit History(uint32_t number)
        : theme(kThemes[number % (sizeof kThemes / sizeof *kThemes)]),
          state((number + 1) * 0x9E3779B97F4A7C15U) {
        framesLeft = theme.frames / 2 + Below(theme.frames);
        smallCalls = theme.kind == kGates || (theme.kind != kSizes && OneIn(5));
        usualFrames = kUsualSizes[Below(kUsualSizeCount)];
        quietFrames = 2000 + Below(OneIn(2) ? 15000 : 148000);
        if (theme.kind == kQuiet) framesLeft = quietFrames + 8000;
        Configure();
        Add({HistoryCall::kCommand, EFFECT_CMD_ENABLE, {}});
        SwitchAll();
        const uint32_t settings = Below(24);
        for (uint32_t i = 0; i < settings; ++i) ChangeSetting();
        if (theme.kind == kGates) SetGate();
        if (theme.kind == kExtremes && OneIn(3)) {
            // These settings make outputs beyond 32 bits.
            Set(PARAM_LIMITER_GATE, INT32_MAX);
            Set(PARAM_OUTPUT_GAIN, From(100000000, INT32_MAX));
        }
    }

    const char* Theme() const { return theme.name; }
    // Returns the number of interleaved channels, 1 or 2, since the latest configuration.
    uint32_t Channels() const { return channels; }
    // Returns the next call, or null at the end. The caller passes the call's result to Answer
    // before it asks for the next one.
    const HistoryCall* Next() {
        if (taken == queued) {
            if (framesLeft == 0) return nullptr;
            PlanBuffer();
        }
        const HistoryCall& call = queue[taken++];
        if (call.kind == HistoryCall::kConfigure) channels = static_cast<uint32_t>(call.values[0]);
        if (call.kind == HistoryCall::kProcess) FillInput(static_cast<uint32_t>(call.first));
        return &call;
    }
    // Returns the interleaved input of the latest call of kProcess.
    const int16_t* Input() const { return input; }
    // Takes the status of the latest call. If a call of kProcess answered 0, also takes its output.
    // The status of a command does not count, because a reset has none.
    void Answer(int32_t status, const int16_t* output) {
        const HistoryCall& call = queue[taken - 1];
        if (call.kind != HistoryCall::kCommand) Mix(static_cast<uint32_t>(status));
        if (call.kind != HistoryCall::kProcess || status != 0) return;
        const size_t count = static_cast<size_t>(call.first) * channels;
        for (size_t i = 0; i < count; ++i) Mix(static_cast<uint16_t>(output[i]));
        frames += static_cast<uint32_t>(call.first);
    }
    // Returns the digest of all answers so far: FNV-1a over whole numbers instead of bytes.
    uint64_t Digest() const { return digest; }
    // Returns the number of frames of all buffers that were not refused.
    uint32_t Frames() const { return frames; }

private:
    enum ThemeKind {
        kGates,
        kQuiet,
        kSizes,
        kContour,
        kSwitches,
        kConfigurations,
        kExtremes,
        kAll
    };
    struct ThemeOf {
        ThemeKind kind;
        uint32_t frames;  // on average
        const char* name;
    };
    static constexpr ThemeOf kGatesTheme = {kGates, 7000, "gates in small buffers"},
                             kQuietTheme = {kQuiet, 0, "loud, quiet, loud"},
                             kSizesTheme = {kSizes, 30000, "buffer sizes"},
                             kContourTheme = {kContour, 10000, "contour and process"},
                             kSwitchesTheme = {kSwitches, 10000, "switches and resets"},
                             kConfigureTheme = {kConfigurations, 10000, "configurations"},
                             kExtremesTheme = {kExtremes, 6000, "extreme values"},
                             kAllTheme = {kAll, 10000, "all settings"};
    static constexpr ThemeOf kThemes[] = {
        kGatesTheme, kQuietTheme, kSizesTheme,    kContourTheme,  kSwitchesTheme,
        kGatesTheme, kAllTheme,   kExtremesTheme, kContourTheme,  kConfigureTheme,
        kGatesTheme, kSizesTheme, kAllTheme,      kExtremesTheme, kSwitchesTheme,
        kGatesTheme, kAllTheme,   kContourTheme,  kExtremesTheme, kAllTheme};
    static constexpr int32_t kRates[] = {44100, 44100, 48000, 32000, 35000,
                                         37123, 37800, 40000, 47952};
    // Sizes around a vector, a lap of the limiter, one and two blocks of the enhancer, and the
    // largest buffer that needs no allocation. The theme of sizes alone uses the last six.
    static constexpr uint32_t kSizesTried[] = {
        1,    2,    3,    4,    63,   64,   65,   127,  128,  129,  769,   770,  771,
        1539, 1540, 1541, 2047, 2048, 2049, 4096, 8191, 8192, 8193, 12345, 16385};
    static constexpr uint32_t kSizesCount = sizeof kSizesTried / sizeof *kSizesTried;
    static constexpr uint32_t kUsualSizes[] = {128, 240, 256, 441, 480, 512, 770, 1024};
    static constexpr uint32_t kUsualSizeCount = sizeof kUsualSizes / sizeof *kUsualSizes;

    // Returns a random number from 0 to n - 1. An expression must not draw two numbers, because
    // the compiler chooses their order.
    uint32_t Below(uint32_t n) {
        state = state * 6364136223846793005U + 1442695040888963407U;
        return static_cast<uint32_t>((state >> 32U) * n >> 32U);
    }
    bool OneIn(uint32_t n) { return Below(n) == 0; }
    int32_t From(int32_t least, int32_t most) {
        return least + static_cast<int32_t>(Below(static_cast<uint32_t>(most - least + 1)));
    }
    void Mix(uint32_t value) { digest = (digest ^ value) * 1099511628211U; }

    void Add(const HistoryCall& call) { queue[queued++] = call; }
    void Set(ParameterId id, int32_t value, int32_t second = 0) {
        Add({HistoryCall::kSet, id, {value, second}});
    }

    void Configure() {
        const int32_t rate = kRates[Below(sizeof kRates / sizeof *kRates)];
        Add({HistoryCall::kConfigure, rate, {OneIn(3) ? 1 : 2, 0}});
    }
    // Switches each processor on or off. The theme of the contour needs the enhancer.
    void SwitchAll() {
        const bool everything = OneIn(2);
        for (const ParameterId id : kStageSwitches) {
            const bool own = id == PARAM_ENHANCER_ENABLE && theme.kind == kContour;
            Set(id, everything || own || OneIn(2) ? 1 : 0);
        }
    }
    void Switch(int32_t value) { Set(kStageSwitches[Below(kSwitchCount)], value); }
    void SetGate() { Set(PARAM_LIMITER_GATE, From(1, OneIn(3) ? 30 : 99)); }

    // Changes one parameter. Values are hundredths. Gates and maximum gains come most often,
    // because lowering them affects the samples that wait.
    void ChangeSetting() {
        const int32_t usual = From(1, 100), large = From(-200, 2800);
        switch (Below(13)) {
            case 0:
                return Set(PARAM_LIMITER_GATE, OneIn(8) ? 0 : usual);
            case 1:
                return SetGate();
            case 2:
                return Set(PARAM_PLAYBACKGAIN_MAXGAIN, large);
            case 3:
                return Set(PARAM_PLAYBACKGAIN_MAXGAIN, 4 * usual);
            case 4:
                return Set(PARAM_PLAYBACKGAIN_VOLUME, OneIn(3) ? large : 4 * usual);
            case 5:
                return Set(PARAM_PLAYBACKGAIN_RATIO, OneIn(3) ? large : 2 * usual);
            case 6:
            case 7:
                return Set(PARAM_EQUALIZER_BANDLEVEL, From(-1, 10), large / 8 - 100);
            case 8:
                return Set(PARAM_ENHANCER_PROCESS, OneIn(3) ? large : 3 * usual);
            case 9:
                return Set(PARAM_ENHANCER_LOCONTOUR, OneIn(4) ? 0 : usual);
            case 10:
                // Quarters make products that lie halfway between two floats.
                return Set(PARAM_OUTPUT_GAIN, OneIn(3) ? large : usual / 5 * 25);
            case 11:
                return Set(PARAM_SET_MODE, From(-1, 2));
            default:
                return Switch(OneIn(4) ? 0 : usual);
        }
    }
    // Sets one parameter to an extreme value, or, half of the time, to a usual one.
    void ChangeToExtreme() {
        if (OneIn(2)) return ChangeSetting();
        constexpr int32_t kAny[] = {INT32_MIN, -12801,  -101,      -100,       -99,
                                    -1,        0,       1,         99,         100,
                                    101,       12799,   12800,     25600,      1000000,
                                    6553600,   6553700, 214748364, 2147483520, INT32_MAX};
        const int32_t value = kAny[Below(sizeof kAny / sizeof *kAny)];
        const Parameter* rows[std::size(kParameters)];
        uint32_t count = 0;
        for (const Parameter& row : kParameters)
            if (*row.key != '\0' && row.kind != ParameterKind::kSwitch) rows[count++] = &row;
        // The last two rows, output gain and gate, come twice as often as the others.
        const uint32_t n = Below(count + 2);
        const Parameter& row = *rows[n < count ? n : n - 2];
        if (row.kind == ParameterKind::kBandValue) return Set(row.id, From(0, 9), value);
        Set(row.id, row.id == PARAM_ENHANCER_LOCONTOUR && value < 0 ? -9 : value);
    }

    // Adds the theme's changes before the next buffer.
    void Change() {
        switch (theme.kind) {
            case kGates:
                if (OneIn(2)) SetGate();
                if (OneIn(40)) ChangeSetting();
                break;
            case kQuiet:
                break;
            case kContour:
                if (OneIn(3)) Set(PARAM_ENHANCER_LOCONTOUR, From(0, 150));
                if (OneIn(4)) Set(PARAM_ENHANCER_PROCESS, From(-50, 300));
                if (OneIn(20)) ChangeSetting();
                break;
            case kSwitches:
                if (OneIn(4)) Switch(From(0, 1));
                if (OneIn(12)) Add({HistoryCall::kCommand, EFFECT_CMD_RESET, {}});
                if (OneIn(12)) Set(PARAM_SET_MODE, From(0, 1));
                // A disabled effect refuses buffers.
                if (OneIn(16)) Add({HistoryCall::kCommand, EFFECT_CMD_DISABLE, {}});
                if (OneIn(4)) Add({HistoryCall::kCommand, EFFECT_CMD_ENABLE, {}});
                break;
            case kConfigurations:
                if (OneIn(10)) Configure();
                if (OneIn(10)) Set(PARAM_SET_MODE, From(0, 1));
                if (OneIn(4)) ChangeSetting();
                break;
            case kExtremes:
                if (OneIn(2)) ChangeToExtreme();
                break;
            default:
                if (OneIn(3)) ChangeSetting();
                if (OneIn(smallCalls ? 150 : 40)) Configure();
        }
    }

    void PlanBuffer() {
        queued = taken = 0;
        Change();
        uint32_t count = usualFrames;
        if (smallCalls)
            count = 1 + Below(90);
        else if (theme.kind == kSizes ? !OneIn(3) : OneIn(8))
            count = kSizesTried[Below(theme.kind == kSizes ? kSizesCount : kSizesCount - 6)];
        if (count > framesLeft) count = framesLeft;
        framesLeft -= count;
        Add({HistoryCall::kProcess, static_cast<int32_t>(count), {}});
    }

    enum Sound { kMusic, kNoise, kTone, kSquare, kClicks, kOnes, kConstant, kLowest, kSilence };
    enum Sides { kBothSides, kEqual, kLeftOnly, kRightOnly, kOpposite };

    // Chooses the next sound. The theme of quiet passages has three sounds: loud, `quietFrames` of
    // quiet, loud.
    void ChooseSound() {
        constexpr Sound kLoud[] = {kMusic, kMusic, kNoise, kTone, kSquare, kClicks, kLowest};
        constexpr Sound kQuietSounds[] = {kOnes, kSilence, kConstant, kNoise, kMusic};
        constexpr Sides kSides[] = {kBothSides, kBothSides, kEqual,
                                    kLeftOnly,  kRightOnly, kOpposite};
        const bool hush = theme.kind == kQuiet ? sounds == 1 : OneIn(4);
        sound = hush ? kQuietSounds[Below(5)] : kLoud[Below(7)];
        // The channels often differ where gates change, because each has its own window.
        sides = theme.kind == kGates && OneIn(2) ? kBothSides : kSides[Below(6)];
        shift = Below(OneIn(2) ? 2 : 6);
        if (hush) shift = 6 + Below(10);
        softer = Below(3);
        constant = From(-32768, 32767);
        rarity = From(1, OneIn(2) ? 20 : 500);
        increments[0] = 1000000 + Below(1U << (20 + Below(10)));
        increments[1] = increments[0] / 3 + Below(20000000);
        increments[2] = increments[0] * 5 + 77777;
        soundLeft = 300 + Below(6000);
        if (theme.kind == kQuiet) soundLeft = hush ? quietFrames : 4000;
        ++sounds;
    }

    // Returns an approximation of sin(2 pi phase / 2^32) at full scale, made of two parabolas.
    static int32_t Wave(uint32_t phase) {
        const int32_t x = static_cast<int32_t>(phase) >> 16;
        const int32_t y = x * (32768 - (x < 0 ? -x : x)) >> 13;
        return y > 32767 ? 32767 : y;
    }
    int32_t Noise() {
        noise = noise * 1664525U + 1013904223U;
        return static_cast<int32_t>(noise) >> 16;
    }
    int32_t Sample() {
        const int32_t random = Noise();
        const uint32_t t = position;
        switch (sound) {
            case kMusic: {
                // Three tones that decay over each beat of 8192 frames, and a little noise.
                const int32_t decay = 8191 - static_cast<int32_t>(t % 8192);
                const int32_t tones = (Wave(t * increments[0]) >> 1) +
                                      (Wave(t * increments[1]) >> 2) +
                                      (Wave(t * increments[2]) >> 3);
                return (tones * decay >> 13) + (random >> 6);
            }
            case kNoise:
                return random;
            case kTone:
                return Wave(t * increments[0]);
            case kSquare:
                return static_cast<int32_t>(t * increments[0]) < 0 ? -32767 : 32767;
            case kClicks:
                return random > 32700 ? 32767 : (random < -32700 ? -32768 : 0);
            case kOnes:
                return random > 32767 - rarity ? 1 : (random < rarity - 32768 ? -1 : 0);
            case kConstant:
                return constant;
            case kLowest:
                return -32768;
            default:
                return 0;
        }
    }
    void FillInput(uint32_t count) {
        int16_t* to = input;
        for (; count > 0; --count, ++position) {
            if (soundLeft == 0) ChooseSound();
            --soundLeft;
            // Single samples of 1 keep their level.
            const uint32_t down = sound == kOnes ? 0 : shift;
            const int32_t left = Sample() >> down;
            int32_t right = left;
            if (channels == 2) {
                if (sides == kBothSides) right = Sample() >> (down + softer);
                if (sides == kOpposite) right = left == -32768 ? 32767 : -left;
                if (sides == kLeftOnly) right = 0;
            }
            *to++ = static_cast<int16_t>(sides == kRightOnly && channels == 2 ? 0 : left);
            if (channels == 2) *to++ = static_cast<int16_t>(right);
        }
    }

    const ThemeOf& theme;
    uint64_t state, digest = 14695981039346656037U;
    uint32_t frames = 0, framesLeft, usualFrames, quietFrames;
    bool smallCalls;
    HistoryCall queue[40];
    uint32_t queued = 0, taken = 0;
    uint32_t channels = 2;
    Sound sound = kSilence;
    Sides sides = kBothSides;
    uint32_t sounds = 0, soundLeft = 0, shift = 0, softer = 0, increments[3], position = 0,
             noise = 1;
    int32_t constant = 0, rarity = 0;
    int16_t input[2 * kMostFrames];
};
