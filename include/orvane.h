/* liborvane: the Quenthra Orvane effect on one running sound, for programs in C.
 *
 * A stream takes any number of frames and returns as many, delayed by orvane_latency() frames. It
 * makes the sound livelier, levels or limits it, as its parameters say. Parameters, presets and
 * the bypass may change at any time, and no change clicks. A sample is one number. A frame is one
 * sample per channel. All counts are in frames unless the text says otherwise.
 *
 *   char error[ORVANE_ERROR_SIZE];
 *   orvane_stream *stream = orvane_create(48000, 2, "night", NULL, 0, error, sizeof error);
 *   if (stream == NULL) { fprintf(stderr, "%s\n", error); exit(1); }
 *   orvane_process_int16(stream, samples, samples, frames);
 *   orvane_destroy(stream);
 *
 * Threads. Streams share nothing, so each may be used without regard to the others. For one stream:
 * - The processing functions, which are orvane_process_*() and orvane_flush(), are called by one
 *   thread at a time.
 * - orvane_set(), orvane_get(), orvane_apply_preset(), orvane_apply_settings(),
 *   orvane_set_bypass(), orvane_latency() and orvane_meters() may be called by any thread at any
 *   time, also while another thread processes. What they set is taken over by the next processing
 *   function, and what they return is as of the last one.
 * - orvane_destroy() must not overlap any other call.
 *
 * An audio thread, which must never wait, may call everything except orvane_create(),
 * orvane_destroy() and orvane_apply_settings(). The functions that look up a name don't wait
 * either, but they compare texts: look names up once, beforehand. Only orvane_create() allocates
 * memory. No function throws, logs, or changes anything outside the stream.
 *
 * Errors. A function that can fail returns ORVANE_OK or ORVANE_INVALID, unless its text names
 * other values. ORVANE_INVALID means that an argument was wrong; the call then changed nothing.
 */
#ifndef ORVANE_H
#define ORVANE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct orvane_stream orvane_stream;

enum { ORVANE_OK = 0, ORVANE_INVALID = -1 };

/* Choices of orvane_create(), which can be added. */
enum {
    /* The effect gets buffers of 770 frames instead of 1024. With everything on, latency drops from
     * 2941 to 1663 frames. The automatic gain then measures the level every 770 frames, so samples
     * differ. */
    ORVANE_LOW_LATENCY = 1,
    /* The stream doesn't settle on silence before its first frame, so the automatic gain fades in
     * during the first two seconds, as on a device. */
    ORVANE_COLD_START = 2
};

/* A text of this many bytes, its NUL included, is never cut by the functions that write errors. */
#define ORVANE_ERROR_SIZE 320

/* Creates a stream.
 *
 * rate_hz: 32000 to 48000, or 2, 4 or 8 times 44100 or 48000. At the multiples the sound is
 * resampled to 44100 or 48000 Hz and back. So it ends at about 20 kHz, and the latency grows by
 * less than 2 ms.
 * channels: 1 or 2. A stream of one channel gives what a stereo stream with equal channels gives.
 * preset: the name of a preset, or NULL to begin with every processor off.
 * settings: the lines of a settings file, each "key = value", which are applied on top of the
 * preset; or NULL. Keys are those of orvane_parameter_at(), but the ten bands of the equalizer
 * share the key "eq": "eq = 3=0.5,9=-1", or ten levels. A switch is "on" or "off". A linear gain
 * may be given in decibels: "output-gain = -3dB". If a band isn't 0, the equalizer is on unless
 * the text says "equalizer = off".
 * flags: 0, or a sum of ORVANE_LOW_LATENCY and ORVANE_COLD_START.
 * error: gets one line without a line end that says what is wrong, cut to `error_size` bytes with
 * its NUL; "" if nothing is wrong. May be NULL.
 *
 * Returns NULL if the rate, the number of channels, the preset, the settings or the flags can't be
 * taken. A number that is not a number, a value outside its range and an unknown key in `settings`
 * are such errors. Also returns NULL if there is not enough memory for all of the stream.
 *
 * Settling processes at least 3 s of silence, which takes some tens of milliseconds. Not for the
 * audio thread. */
orvane_stream* orvane_create(uint32_t rate_hz, uint32_t channels, const char* preset,
                             const char* settings, unsigned flags, char* error, size_t error_size);

/* Destroys a stream and frees its memory. Does nothing for NULL. Not for the audio thread. */
void orvane_destroy(orvane_stream* stream);

/* Process `frames` frames, any number; 0 frames only take over what was set. `in` and `out` hold
 * as many samples per frame as the stream has channels. `out` may be the same memory as `in`;
 * otherwise they must not overlap.
 *
 * Full scale of a float is 1. The effect works on 16 bits, and floats are rounded to them without
 * dither. Floats beyond full scale are clipped. Infinity and NaN count as silence. The result of
 * the first frame comes out orvane_latency() frames later. So the last frames of a sound come out
 * if as many frames of silence follow it.
 *
 * They return ORVANE_INVALID for a NULL stream, and for NULL buffers unless `frames` is 0; nothing
 * is written then. Audio thread. */

/* in[c] and out[c] hold the samples of channel c. Channels may be crossed. */
int orvane_process_planar(orvane_stream* stream, const float* const* in, float* const* out,
                          size_t frames);
/* The samples of each frame follow each other: left, right, left, right. */
int orvane_process_float(orvane_stream* stream, const float* in, float* out, size_t frames);
int orvane_process_int16(orvane_stream* stream, const int16_t* in, int16_t* out, size_t frames);

/* Drops the sound that still waits in the stream. Call it after a seek: the next frame begins a
 * new sound, whose result comes out orvane_latency() frames later; until then the output is
 * silent. Changes that are under way end at once. The automatic gain stays where it is. Returns
 * ORVANE_INVALID for NULL. Audio thread; takes as long as processing two buffers of 1024 or 770
 * frames. */
int orvane_flush(orvane_stream* stream);

/* Returns how many frames later the result of a frame comes out, as of the last processing
 * function; 0 for NULL. Only a switch changes it, or a preset whose switches differ: the
 * sound fades out, the latency changes, and the sound fades in. Any thread. */
uint32_t orvane_latency(const orvane_stream* stream);

/* Passes the input through with the same latency while `bypassed` isn't 0. Switching fades within
 * 512 frames. Returns ORVANE_INVALID for a NULL stream. Any thread. */
int orvane_set_bypass(orvane_stream* stream, int bypassed);

/* One parameter. Later versions may add members at the end. */
typedef struct orvane_parameter {
    const char* key;         /* never changes: "output-gain", or "eq-3" for band 3 */
    const char* label;       /* a listener's words: "Output gain". The bands share one label */
    const char* group;       /* the processor that it belongs to: "enhancer" */
    const char* unit;        /* "switch", "1" (no unit), "factor" (linear gain), "full scale"
                                (linear amplitude) or "level" (of an equalizer band) */
    const char* description; /* what a value does */
    double minimum, maximum;
    double default_value;
    double step;  /* values are rounded to multiples of it */
    int band;     /* 0 (lowest) to 9 for the bands of the equalizer, otherwise -1 */
    int switched; /* the number of the switch that must be on for it to act, or -1 */
} orvane_parameter;

/* Returns parameter `number`, or NULL below 0 and beyond the last one. The list is constant, and
 * its numbers are those that orvane_find() returns. They may differ between versions of the
 * library, keys don't. Any thread. */
const orvane_parameter* orvane_parameter_at(int number);

/* Returns the number of the parameter `key`, to be used with orvane_set(). Returns ORVANE_INVALID,
 * which is negative, for NULL and for an unknown key. Any thread. */
int orvane_find(const char* key);

/* Sets a parameter to `value`, in the parameter's unit. A value outside the range becomes the
 * nearest in it; a switch is on from 0.5 up. A value moves by a cross-fade within 0.3 s, or within
 * 0.42 s at the lowest rate. A switch fades the sound out and in again within 0.2 s. Setting a band
 * doesn't switch the equalizer on. Returns ORVANE_INVALID for a NULL stream, for a number that no
 * parameter has, and for NaN. Any thread. */
int orvane_set(orvane_stream* stream, int parameter, double value);

/* Writes the value that was set last, rounded to the parameter's step, to *value. Returns
 * ORVANE_INVALID for a NULL stream or value, and for a number that no parameter has. Any thread. */
int orvane_get(const orvane_stream* stream, int parameter, double* value);

/* Return a text of preset `number`, or NULL below 0 and beyond the last one. The texts are its name
 * ("night"), what it is for in a few words, and what it does to the sound. The list is constant.
 * Any thread. */
const char* orvane_preset_name(int number);
const char* orvane_preset_purpose(int number);
const char* orvane_preset_description(int number);

/* Returns the number of the preset `name`. Returns ORVANE_INVALID, which is negative, for NULL and
 * for an unknown name. Any thread. */
int orvane_find_preset(const char* name);

/* Sets every parameter: what the preset doesn't have gets its default. The peak limit ("gate") is
 * an exception. Its default, 0.9999, can't be set again once it has had another value: then it
 * becomes 1, and only samples at full scale differ. Returns ORVANE_INVALID for a NULL stream and
 * for a number that no preset has. Any thread. */
int orvane_apply_preset(orvane_stream* stream, int preset);

/* Sets every parameter from the lines of a settings file, as orvane_create() reads them. What the
 * text doesn't have gets its default, with the same exception; so "" switches everything off. If
 * the text is wrong, nothing changes, and `error` gets one line that says what is wrong, as in
 * orvane_create(). Returns ORVANE_INVALID for a wrong text and for a NULL stream or text. Not for
 * the audio thread, because reading a long text takes long. */
int orvane_apply_settings(orvane_stream* stream, const char* settings, char* error,
                          size_t error_size);

/* Levels over about 0.3 s. Full-scale square waves are at 0 dB, and silence is at -100 dB. */
typedef struct orvane_levels {
    float source_db; /* of the input, at the moment of the result */
    float result_db; /* of the output */
    float gain_db;   /* between the two, 0 while one of them is silent */
    int limiting;    /* 1 if peaks have reached the peak limit ("gate"), otherwise 0 */
} orvane_levels;

/* Writes the levels of the last processing function to *levels. Returns ORVANE_INVALID for a NULL
 * stream or NULL levels. Any thread. */
int orvane_meters(const orvane_stream* stream, orvane_levels* levels);

/* Returns the version of the library, "2.1.0.2". Any thread. */
const char* orvane_version(void);

#ifdef __cplusplus
}
#endif
#endif
