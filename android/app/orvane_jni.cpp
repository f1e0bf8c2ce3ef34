// The native methods of OrvaneStream.java. A stream of liborvane is delayed further, so that the
// delay stays the same whatever is switched on. So what comes out stays aligned to what came in.
//
// Memory of Java is used where it is: nothing is allocated or looked up while sound plays.
#include <jni.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <new>

#include "include/orvane.h"

namespace {

constexpr size_t kPieceFrames = 256;
constexpr size_t kFadeFrames = 512;
// The longest delay of a stream is 2941 frames, at all rates.
constexpr uint32_t kDelayFrames = 3072;
constexpr size_t kRingFrames = 4096;  // a power of two, at least kDelayFrames + kPieceFrames
constexpr size_t kFrameBytes = 2 * sizeof(int16_t);

// A stereo stream of 16-bit samples that is always kDelayFrames late. Thread: as orvane_stream.
class AppStream {
public:
    explicit AppStream(orvane_stream* made) : stream(made) { Restart(); }
    AppStream(const AppStream&) = delete;
    AppStream& operator=(const AppStream&) = delete;
    ~AppStream() { orvane_destroy(stream); }

    // Takes `frames` frames, or as many of silence if `in` is null. Drops what belongs to the time
    // before the first frame. Writes the rest to `out`, and returns how many frames these are.
    size_t Run(const uint8_t* in, uint8_t* out, size_t frames) {
        size_t given = 0;
        for (size_t done = 0; done < frames;) {
            const size_t count = std::min(frames - done, kPieceFrames);
            std::array<int16_t, 2 * kPieceFrames> piece{};
            if (in != nullptr)
                std::memcpy(piece.data(), in + done * kFrameBytes, count * kFrameBytes);
            orvane_process_int16(stream, piece.data(), piece.data(), count);
            Delay(piece.data(), count);
            const size_t dropped = std::min(skip, count);
            skip -= dropped;
            std::memcpy(out + given * kFrameBytes, &piece[2 * dropped],
                        (count - dropped) * kFrameBytes);
            given += count - dropped;
            done += count;
        }
        waiting += (in != nullptr ? frames : 0) - given;
        return given;
    }
    // Writes at most `frames` of the frames that still wait, and returns how many these are.
    size_t Drain(uint8_t* out, size_t frames) {
        const size_t count = std::min(frames, waiting);
        return count > 0 ? Run(nullptr, out, skip + count) : 0;
    }
    void Flush() {
        orvane_flush(stream);
        Restart();
    }
    size_t Waiting() const { return waiting; }

    orvane_stream* const stream;

private:
    uint32_t Complement() const {
        return kDelayFrames - std::min(orvane_latency(stream), kDelayFrames);
    }
    void Restart() {
        ring.fill(0);
        now = 0;
        delay = older = Complement();
        faded = kFadeFrames;
        skip = kDelayFrames;
        waiting = 0;
    }
    // Delays a piece. When the stream's own delay changes, cross-fades to the new complement.
    void Delay(int16_t* piece, size_t frames) {
        if (const uint32_t complement = Complement(); complement != delay) {
            older = delay;
            delay = complement;
            faded = 0;
        }
        for (size_t n = 0; n < frames; ++n, ++now) {
            for (size_t c = 0; c < 2; ++c) ring[2 * (now % kRingFrames) + c] = piece[2 * n + c];
            for (size_t c = 0; c < 2; ++c) piece[2 * n + c] = Heard(c);
            if (faded < kFadeFrames) ++faded;
        }
    }
    int16_t Heard(size_t channel) const {
        const auto at = [&](uint32_t frames) -> int32_t {
            return ring[2 * ((now - frames) % kRingFrames) + channel];
        };
        const auto part = static_cast<int32_t>(faded), whole = int32_t{kFadeFrames};
        return static_cast<int16_t>((at(delay) * part + at(older) * (whole - part)) / whole);
    }

    std::array<int16_t, 2 * kRingFrames> ring;
    size_t now;             // frames since the last flush
    uint32_t delay, older;  // frames, present and before its last change
    size_t faded;           // frames of the cross-fade between the two that have passed
    size_t skip;            // frames that will be dropped
    size_t waiting;         // frames that came in and have not come out
};

AppStream& StreamOf(jlong handle) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): Java holds the address as a number
    return *reinterpret_cast<AppStream*>(static_cast<intptr_t>(handle));
}
uint8_t* At(JNIEnv* env, jobject buffer, jint position) {
    return static_cast<uint8_t*>(env->GetDirectBufferAddress(buffer)) + position;
}

// A text of Java in a buffer, whose characters beyond its size are cut. Null stays null.
class Text {
public:
    Text(JNIEnv* env, jstring from) : isNull(from == nullptr) {
        if (isNull) return;
        const jsize length = env->GetStringLength(from);
        // Each character takes up to three bytes.
        env->GetStringUTFRegion(from, 0, std::min(length, kMostCharacters), bytes.data());
    }
    const char* Get() const { return isNull ? nullptr : bytes.data(); }

private:
    static constexpr jsize kMostCharacters = 80;
    bool isNull;
    std::array<char, 3 * size_t{kMostCharacters} + 1> bytes{};
};

}  // namespace

// The names are those that Java looks for.
#define NATIVE(type, name) \
    extern "C" JNIEXPORT type JNICALL Java_com_quenthra_orvane_OrvaneStream_##name

NATIVE(jlong, create)
(JNIEnv* env, jclass /*type*/, jint rateHz, jstring preset, jboolean settles) {
    std::array<char, ORVANE_ERROR_SIZE> error{};
    const unsigned flags = settles ? 0 : ORVANE_COLD_START;
    orvane_stream* const made =
        orvane_create(static_cast<uint32_t>(rateHz), 2, Text(env, preset).Get(), nullptr, flags,
                      error.data(), error.size());
    AppStream* const stream = made != nullptr ? new (std::nothrow) AppStream(made) : nullptr;
    if (stream != nullptr) return static_cast<jlong>(reinterpret_cast<intptr_t>(stream));
    orvane_destroy(made);
    const char* const reason = made != nullptr ? "not enough memory" : error.data();
    if (const jclass fault = env->FindClass("java/lang/IllegalArgumentException"))
        env->ThrowNew(fault, reason);
    return 0;
}
NATIVE(void, destroy)(JNIEnv*, jclass, jlong handle) {
    delete &StreamOf(handle);
}
NATIVE(jint, process)
(JNIEnv* env, jclass, jlong handle, jobject in, jint inAt, jobject out, jint outAt, jint frames) {
    return static_cast<jint>(
        StreamOf(handle).Run(At(env, in, inAt), At(env, out, outAt), static_cast<size_t>(frames)));
}
NATIVE(jint, drain)
(JNIEnv* env, jclass, jlong handle, jobject out, jint outAt, jint frames) {
    return static_cast<jint>(
        StreamOf(handle).Drain(At(env, out, outAt), static_cast<size_t>(frames)));
}
NATIVE(jint, waiting)(JNIEnv*, jclass, jlong handle) {
    return static_cast<jint>(StreamOf(handle).Waiting());
}
NATIVE(void, flush)(JNIEnv*, jclass, jlong handle) {
    StreamOf(handle).Flush();
}
NATIVE(jint, find)(JNIEnv* env, jclass, jstring key) {
    return orvane_find(Text(env, key).Get());
}
NATIVE(jint, findPreset)(JNIEnv* env, jclass, jstring name) {
    return orvane_find_preset(Text(env, name).Get());
}
NATIVE(jstring, presetName)(JNIEnv* env, jclass, jint number) {
    const char* const name = orvane_preset_name(number);
    return name != nullptr ? env->NewStringUTF(name) : nullptr;
}
NATIVE(void, set)(JNIEnv*, jclass, jlong handle, jint parameter, jdouble value) {
    orvane_set(StreamOf(handle).stream, parameter, value);
}
NATIVE(void, applyPreset)(JNIEnv*, jclass, jlong handle, jint preset) {
    orvane_stream* const stream = StreamOf(handle).stream;
    if (preset < 0)
        orvane_apply_settings(stream, "", nullptr, 0);
    else
        orvane_apply_preset(stream, preset);
}
NATIVE(void, setBypass)(JNIEnv*, jclass, jlong handle, jboolean bypassed) {
    orvane_set_bypass(StreamOf(handle).stream, bypassed);
}
