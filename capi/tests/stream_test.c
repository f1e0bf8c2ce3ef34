/* Tests the C library as a program in C89 sees it. Counts and refuses allocations: the functions
 * below come before the platform's for the library, too. */
#include <math.h>
#include <orvane.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { RATE = 48000, SECOND = RATE };

static int allocations = 0, refused = -1, failures = 0;

extern void* __libc_malloc(size_t);
extern void* __libc_calloc(size_t, size_t);
void* malloc(size_t size) {
    return allocations++ == refused ? NULL : __libc_malloc(size);
}
void* calloc(size_t n, size_t size) {
    return allocations++ == refused ? NULL : __libc_calloc(n, size);
}

#define CHECK(condition) check(condition, __LINE__, #condition)
static void check(int holds, int line, const char* text) {
    if (holds) return;
    printf("line %d: %s\n", line, text);
    ++failures;
}

static orvane_stream* make(const char* preset, unsigned flags) {
    char error[ORVANE_ERROR_SIZE];
    orvane_stream* stream = orvane_create(RATE, 2, preset, NULL, flags, error, sizeof error);
    if (stream == NULL) exit(puts(error));
    return stream;
}

/* Noise that swells and fades, so that the automatic gain has work. The same sample at the same
 * time. */
static void fill(int16_t* samples, size_t from, size_t frames) {
    size_t n;
    for (n = 2 * from; n < 2 * (from + frames); ++n) {
        const uint32_t noise = ((uint32_t)n * 2654435761U ^ (uint32_t)n << 7) * 2246822519U >> 16;
        const double swell = 0.05 + 0.4 * (1 + sin((double)(n / 2) / SECOND));
        samples[n - 2 * from] = (int16_t)(((double)noise - 32768) * swell);
    }
}

static double level_db(const int16_t* samples, size_t from, size_t frames) {
    double squares = 1;
    size_t n;
    for (n = 2 * from; n < 2 * (from + frames); ++n) squares += (double)samples[n] * samples[n];
    return 10 * log10(squares / (double)frames);
}

static int is_silent(const int16_t* samples, size_t frames) {
    size_t n = 0;
    while (n < 2 * frames && samples[n] == 0) ++n;
    return n == 2 * frames;
}

/* Whatever allocation of a creation fails, there is no stream, and a line says why. */
static void test_refused_allocations(uint32_t rate) {
    char error[ORVANE_ERROR_SIZE];
    for (refused = 0;; ++refused) {
        orvane_stream* stream;
        allocations = 0;
        stream = orvane_create(rate, 2, "loud", "eq = 3=0.2", 0, error, sizeof error);
        if (allocations <= refused) {
            CHECK(stream != NULL && *error == '\0' && refused > 50);
            orvane_destroy(stream);
            break;
        }
        CHECK(stream == NULL && strcmp(error, "not enough memory") == 0);
    }
    refused = -1;
}

static void test_arguments(void) {
    static const struct {
        uint32_t rate, channels;
        const char *preset, *settings, *error;
    } rows[] = {{31999, 2, NULL, NULL, "the rate is"},
                {50000, 2, NULL, NULL, "the rate is"},
                {RATE, 0, NULL, NULL, "there must be"},
                {RATE, 3, NULL, NULL, "there must be"},
                {RATE, 2, "nigt", NULL, "no preset is called nigt"},
                {RATE, 2, NULL, "\nratio = x", "settings, line 2: ratio x is not a number"},
                {RATE, 2, NULL, "rato = 1", "settings, line 1: no setting is called rato"}};
    char error[ORVANE_ERROR_SIZE], brief[8];
    orvane_stream* stream = make("night", ORVANE_COLD_START);
    const int gain = orvane_find("output-gain"), band = orvane_find("eq-9");
    orvane_levels levels;
    double value = 0;
    int16_t frame[2] = {7, 7};
    size_t n;
    for (n = 0; n < sizeof rows / sizeof rows[0]; ++n) {
        CHECK(orvane_create(rows[n].rate, rows[n].channels, rows[n].preset, rows[n].settings, 0,
                            error, sizeof error) == NULL);
        CHECK(strncmp(error, rows[n].error, strlen(rows[n].error)) == 0);
        CHECK(orvane_create(rows[n].rate, rows[n].channels, rows[n].preset, rows[n].settings, 0,
                            NULL, 0) == NULL);
    }
    CHECK(orvane_create(RATE, 2, NULL, NULL, 4, brief, sizeof brief) == NULL);
    CHECK(strcmp(brief, "the fla") == 0);
    CHECK(orvane_process_int16(NULL, frame, frame, 1) == ORVANE_INVALID && frame[0] == 7);
    CHECK(orvane_process_int16(stream, NULL, frame, 1) == ORVANE_INVALID && frame[0] == 7);
    CHECK(orvane_process_planar(stream, NULL, NULL, 1) == ORVANE_INVALID);
    CHECK(orvane_process_planar(stream, NULL, NULL, 0) == ORVANE_OK);
    CHECK(orvane_flush(NULL) == ORVANE_INVALID && orvane_latency(NULL) == 0);
    CHECK(orvane_set_bypass(NULL, 1) == ORVANE_INVALID);
    CHECK(orvane_meters(stream, NULL) == ORVANE_INVALID);
    CHECK(orvane_meters(NULL, &levels) == ORVANE_INVALID);
    CHECK(orvane_find(NULL) == ORVANE_INVALID && orvane_find("eq") == ORVANE_INVALID);
    CHECK(orvane_parameter_at(-1) == NULL && orvane_parameter_at(band)->band == 9);
    CHECK(strcmp(orvane_parameter_at(orvane_parameter_at(band)->switched)->key, "equalizer") == 0);
    CHECK(orvane_set(stream, gain, strtod("nan", NULL)) == ORVANE_INVALID);
    CHECK(orvane_set(stream, -1, 1) == ORVANE_INVALID &&
          orvane_set(NULL, gain, 1) == ORVANE_INVALID);
    CHECK(orvane_get(stream, gain, &value) == ORVANE_OK && value == 0.25);
    CHECK(orvane_set(stream, gain, 1e300) == ORVANE_OK);
    CHECK(orvane_get(stream, gain, &value) == ORVANE_OK && value == 16);
    CHECK(orvane_find_preset(NULL) == ORVANE_INVALID && orvane_preset_name(99) == NULL);
    CHECK(orvane_apply_preset(stream, 99) == ORVANE_INVALID);
    CHECK(orvane_apply_settings(stream, "eq = 1=2", error, sizeof error) == ORVANE_INVALID);
    CHECK(orvane_apply_settings(stream, NULL, NULL, 0) == ORVANE_INVALID);
    CHECK(orvane_get(stream, gain, &value) == ORVANE_OK && value == 16);
    CHECK(orvane_apply_settings(stream, "", error, sizeof error) == ORVANE_OK);
    CHECK(orvane_get(stream, gain, &value) == ORVANE_OK && value == 1);
    orvane_destroy(stream);
    orvane_destroy(NULL);
}

/* After each of 20 seeks: silence until the first new frame comes out, nothing of the sound before,
 * and then the level of a stream that was not flushed. Nothing is allocated meanwhile. */
static void test_seeks(const char* preset, unsigned flags) {
    static int16_t in[2 * SECOND], plain[2 * SECOND], sought[2 * SECOND];
    orvane_stream *without = make(preset, flags), *with = make(preset, flags);
    const uint32_t latency = orvane_latency(with);
    size_t seek, n;
    for (seek = 0; seek < 21; ++seek) {
        const size_t frames = SECOND - 977 * seek;
        fill(in, seek * SECOND, frames);
        allocations = 0;
        if (seek > 0) orvane_flush(with);
        orvane_process_int16(without, in, plain, frames);
        for (n = 0; n < frames; n += 100 + seek)
            orvane_process_int16(with, in + 2 * n, sought + 2 * n,
                                 frames - n < 100 + seek ? frames - n : 100 + seek);
        CHECK(allocations == 0);
        CHECK(seek == 0 || is_silent(sought, latency - 640));
        for (n = latency + SECOND / 100; n < SECOND * 3 / 4; n += SECOND / 10)
            CHECK(fabs(level_db(sought, n, SECOND / 10) - level_db(plain, n, SECOND / 10)) < 1);
    }
    orvane_flush(with);
    memset(in, 0, sizeof in);
    orvane_process_int16(with, in, sought, SECOND);
    CHECK(is_silent(sought, SECOND));
    orvane_destroy(without);
    orvane_destroy(with);
}

/* Planar floats, interleaved floats and one channel give the same samples, and so do a preset and
 * values that were set after the creation. */
static void test_forms(void) {
    static int16_t in[2 * SECOND], whole[2 * SECOND], single[SECOND];
    static float left[SECOND], right[SECOND], mixed[2 * SECOND];
    float* io[2];
    orvane_stream *reference = make("loud", ORVANE_COLD_START),
                  *by_values = make("off", ORVANE_COLD_START);
    orvane_stream* by_preset = make("night", ORVANE_COLD_START);
    orvane_stream* mono = orvane_create(RATE, 1, "loud", NULL, ORVANE_COLD_START, NULL, 0);
    const orvane_parameter* parameter;
    double value;
    int n, same = 1;
    io[0] = left;
    io[1] = right;
    fill(in, 0, SECOND);
    for (n = 0; n < SECOND; ++n) {
        in[2 * n + 1] = single[n] = in[2 * n];
        left[n] = right[n] = mixed[2 * n] = mixed[2 * n + 1] = (float)in[2 * n] / 32768;
    }
    for (n = 0; (parameter = orvane_parameter_at(n)) != NULL; ++n) {
        orvane_get(reference, orvane_find(parameter->key), &value);
        orvane_set(by_values, n, value);
    }
    allocations = 0;
    orvane_apply_preset(by_preset, orvane_find_preset("loud"));
    orvane_process_int16(reference, in, whole, SECOND);
    orvane_process_planar(by_values, (const float* const*)io, io, SECOND);
    orvane_process_float(by_preset, mixed, mixed, SECOND);
    orvane_process_int16(mono, single, single, SECOND);
    CHECK(allocations == 0);
    for (n = 0; n < SECOND; ++n)
        same = same && single[n] == whole[2 * n] && 32768 * left[n] == whole[2 * n] &&
               32768 * right[n] == whole[2 * n + 1] && 32768 * mixed[2 * n] == whole[2 * n];
    CHECK(same && level_db(whole, 0, SECOND) > 30);
    CHECK(orvane_latency(by_preset) == orvane_latency(reference));
    orvane_destroy(reference);
    orvane_destroy(by_values);
    orvane_destroy(by_preset);
    orvane_destroy(mono);
}

/* Nothing of the sound before a flush stays in the resamplers of a stream at a higher rate, nor in
 * a bypass. */
static void test_flush_while_resampling(void) {
    static int16_t samples[2 * SECOND];
    orvane_stream* stream = orvane_create(4 * RATE, 2, "loud", NULL, 0, NULL, 0);
    int bypassed;
    for (bypassed = 0; bypassed < 2; ++bypassed) {
        orvane_set_bypass(stream, bypassed);
        fill(samples, 0, SECOND);
        orvane_process_int16(stream, samples, samples, SECOND / 2 + 1);
        CHECK(level_db(samples, 0, SECOND / 2) > 30);
        orvane_flush(stream);
        memset(samples, 0, sizeof samples);
        orvane_process_int16(stream, samples, samples, SECOND);
        CHECK(is_silent(samples, SECOND));
    }
    orvane_destroy(stream);
}

int main(void) {
    test_refused_allocations(48000);
    test_refused_allocations(192000);
    test_arguments();
    test_seeks("night", 0);
    test_seeks("loud", ORVANE_LOW_LATENCY);
    test_seeks("loud", 0);
    test_seeks("off", 0);
    test_forms();
    test_flush_while_resampling();
    return failures != 0;
}
