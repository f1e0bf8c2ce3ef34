/* Identifiers and records with which a native application controls Quenthra Orvane v2. Written in
 * C89 with <stdint.h>, and also valid C++. An application needs to copy only this file.
 *
 * A record consists of 32-bit words in the device's byte order: status, size of the identifier (4),
 * size of the values in bytes, identifier, values. A value in units is sent as an integer, as the
 * comment at each identifier says. Level -0.45 of band 3 is sent as the two values 3 and -45.
 * docs/controlling.md says what each parameter does. Thread: any; the functions have no state. */
#ifndef QUENTHRA_ORVANE_H
#define QUENTHRA_ORVANE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* The UUIDs of the effect's implementation and type. Look for the implementation, because the type
 * is another one while the device is in safe mode. */
/* generated: c-identifiers */
#define ORVANE_UUID "d92c3a90-3e26-11e2-a25f-0800200c9a66"
#define ORVANE_TYPE "aa48cf24-9ae1-4045-acb9-4fe1e156475b"

enum OrvaneParameter {
    /* 0 off, 1 on */
    ORVANE_PARAM_PLAYBACKGAIN_ENABLE = 0x20002,
    /* 0 to 10 times 100 */
    ORVANE_PARAM_PLAYBACKGAIN_RATIO = 0x20003,
    /* 0 to 127 (factor) times 100 */
    ORVANE_PARAM_PLAYBACKGAIN_VOLUME = 0x20004,
    /* 0 to 127 (factor) times 100 */
    ORVANE_PARAM_PLAYBACKGAIN_MAXGAIN = 0x20005,
    /* 0 off, 1 on */
    ORVANE_PARAM_EQUALIZER_ENABLE = 0x20006,
    /* band 0 to 9, then -1 to 1 (level) times 100 */
    ORVANE_PARAM_EQUALIZER_BANDLEVEL = 0x20007,
    /* 0 off, 1 on */
    ORVANE_PARAM_ENHANCER_ENABLE = 0x20008,
    /* 0 to 4 (factor) times 100 */
    ORVANE_PARAM_ENHANCER_PROCESS = 0x20009,
    /* 0 to 4 times 100 */
    ORVANE_PARAM_ENHANCER_LOCONTOUR = 0x2000A,
    /* 0 to 16 (factor) times 100 */
    ORVANE_PARAM_OUTPUT_GAIN = 0x2000B,
    /* 0 to 1 (full scale) times 100; the default 0.9999 can't be sent, and 100 is nearest */
    ORVANE_PARAM_LIMITER_GATE = 0x2000C,
    /* 0 to 1 */
    ORVANE_PARAM_SET_MODE = 0x20001,
    /* 0 off, 1 on */
    ORVANE_PARAM_SET_TIMESTAMP_ENABLE = 0x9001,
    /* answers 4 bytes */
    ORVANE_PARAM_GET_VERSION = 0x8001,
    /* answers 0 or 1 */
    ORVANE_PARAM_GET_ENABLED = 0x8002,
    /* answers 0 or 1 */
    ORVANE_PARAM_GET_READY = 0x8003,
    /* answers 0 or 1 */
    ORVANE_PARAM_GET_PROCESSING = 0x8004,
    /* answers 0 or 1 */
    ORVANE_PARAM_GET_MODE = 0x8005,
    /* answers Hz */
    ORVANE_PARAM_GET_SAMPLING_RATE = 0x8006,
    /* answers count */
    ORVANE_PARAM_GET_CHANNELS = 0x8007
};
/* end generated */

enum OrvaneRecordSize {
    ORVANE_MAX_VALUES = 4,
    ORVANE_GET_BYTES = 16,
    ORVANE_SET_MAX_BYTES = ORVANE_GET_BYTES + 4 * ORVANE_MAX_VALUES,
    ORVANE_REPLY_BYTES = 20 /* the reply size to offer with a get-parameter command */
};

#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L)
#define ORVANE_INLINE static inline
#elif defined(__GNUC__)
#define ORVANE_INLINE static __attribute__((unused))
#else
#define ORVANE_INLINE static
#endif

/* Packs the data of a set-parameter command that gives `id` `count` values, 1 to ORVANE_MAX_VALUES.
 * `record` has ORVANE_SET_MAX_BYTES bytes at any address. Returns the size of the command in bytes.
 * For any other count, returns 0 and writes nothing. */
ORVANE_INLINE size_t OrvanePackSet(void* record, int32_t id, const int32_t* values, int32_t count) {
    int32_t header[4];
    if (count < 1 || count > ORVANE_MAX_VALUES) return 0;
    header[0] = 0;
    header[1] = 4;
    header[2] = 4 * count;
    header[3] = id;
    memcpy(record, header, sizeof header);
    memcpy((unsigned char*)record + sizeof header, values, 4 * (size_t)count);
    return sizeof header + 4 * (size_t)count;
}

/* Packs the data of a get-parameter command. `record` has ORVANE_GET_BYTES bytes at any address.
 * Returns the size of the command in bytes. */
ORVANE_INLINE size_t OrvanePackGet(void* record, int32_t id) {
    int32_t request[4];
    request[0] = 0;
    request[1] = 4;
    request[2] = 4;
    request[3] = id;
    memcpy(record, request, sizeof request);
    return sizeof request;
}

/* Reads the reply of a get-parameter command. `bytes` is the reply size that the command left.
 * Returns 0 and stores the value. If the command was refused, returns the negative status and
 * leaves *value unchanged; -22 means that there is no such parameter or no whole reply. */
ORVANE_INLINE int32_t OrvaneReadReply(const void* reply, size_t bytes, int32_t* value) {
    const int32_t refused = -22;
    int32_t words[5];
    if (bytes < 4) return refused;
    memcpy(words, reply, bytes < sizeof words ? bytes : sizeof words);
    if (words[0] != 0) return words[0];
    if (bytes < sizeof words || words[2] != 4) return refused;
    *value = words[4];
    return 0;
}

/* Returns the value that sets a gain in dB when all ten bands get it with
 * ORVANE_PARAM_EQUALIZER_BANDLEVEL. Below -40 dB it is -100 (mute); above 9 dB it is the highest,
 * 100 (9.5 dB). One band alone does less at its own frequency and the opposite an octave above it.
 * Band 9 alone removes everything below it. OrvaneBandTerm gives the numbers. */
ORVANE_INLINE int32_t OrvaneLevelOfDb(int32_t decibels) {
    /* clang-format off */
    static const signed char levels[] = { /* -40 dB first */
/* generated: levels */
        -99, -99, -99, -99, -98, -98, -98, -98, -97, -97,
        -97, -96, -96, -96, -95, -94, -94, -93, -92, -91,
        -90, -89, -87, -86, -84, -82, -80, -78, -75, -72,
        -68, -65, -60, -55, -50, -44, -37, -29, -21, -11,
        0, 6, 13, 21, 29, 39, 50, 62, 76, 91
/* end generated */
    };
    /* clang-format on */
    if (decibels < -40) return -100;
    if (decibels > 9) return 100;
    return levels[decibels + 40];
}

/* Returns what a band adds to the equalizer's linear gain at a frequency, in thousandths of the
 * band's own gain. The band's gain is 1 + level up to level 0 and 1 + 2 level above. So the
 * equalizer's gain at the frequency is the sum of term times gain over the ten bands, divided by
 * 1000. It can be negative. To find the ten gains for a curve, solve a linear least-squares problem
 * with bounds of 0 and 3.
 *
 * `third` counts thirds of an octave from 0 (25 Hz) to 29 (20 kHz) at a sampling rate of 44100 Hz.
 * At other rates the frequencies are in proportion to the rate. Returns 0 for any other band or
 * third. */
ORVANE_INLINE int32_t OrvaneBandTerm(int32_t band, int32_t third) {
    /* clang-format off */
    static const short terms[][10] = { /* 25 Hz first, band 0 first */
/* generated: terms */
        {868, 101, 30, 14, 17, 32, 63, 125, 250, -500},
        {795, 154, 45, 18, 18, 32, 63, 125, 250, -500},
        {681, 235, 69, 25, 20, 32, 63, 125, 250, -500},
        {530, 339, 103, 34, 22, 33, 63, 125, 250, -500},
        {324, 472, 157, 49, 26, 34, 63, 125, 250, -500},
        {74, 607, 238, 73, 33, 36, 64, 125, 250, -500},
        {-135, 664, 342, 108, 42, 38, 64, 126, 250, -500},
        {-217, 548, 470, 160, 57, 42, 65, 126, 250, -500},
        {-72, 145, 610, 243, 82, 49, 67, 126, 250, -500},
        {117, -253, 665, 348, 117, 58, 70, 127, 251, -500},
        {31, -249, 545, 476, 169, 73, 74, 128, 251, -499},
        {-76, -10, 171, 607, 248, 97, 80, 130, 252, -499},
        {61, 57, -258, 666, 359, 136, 91, 133, 252, -498},
        {-30, 59, -247, 541, 487, 189, 107, 138, 254, -497},
        {-37, -37, -8, 160, 616, 269, 132, 145, 256, -496},
        {-28, 88, 60, -267, 669, 382, 172, 157, 260, -494},
        {-25, -3, 54, -244, 531, 510, 229, 174, 265, -490},
        {22, -56, -43, -6, 154, 631, 308, 201, 273, -484},
        {16, -45, 87, 66, -284, 673, 427, 246, 288, -474},
        {-10, -14, -1, 43, -238, 510, 554, 307, 309, -460},
        {-3, 24, -58, -37, 4, 110, 665, 392, 340, -437},
        {8, 8, -38, 85, 63, -302, 681, 506, 389, -401},
        {7, -18, -11, 5, 20, -223, 463, 637, 462, -342},
        {3, -7, 25, -62, -24, 25, 18, 724, 556, -257},
        {-4, 11, 11, -46, 84, 84, -366, 676, 673, -123},
        {-1, 7, -21, -4, 15, -28, -182, 345, 784, 82},
        {3, 2, -13, 26, -65, 6, 67, -181, 802, 354},
        {-2, 5, 8, 10, -56, 79, 115, -470, 602, 709},
        {1, -4, 8, -22, 14, 38, -136, -50, 1, 1151},
        {2, 2, 4, -24, 19, -53, 82, 156, -646, 1458}
/* end generated */
    };
    /* clang-format on */
    if (band < 0 || band > 9 || third < 0 || third > 29) return 0;
    return terms[third][band];
}

/* Gives the commands of a preset one after the other: `index` counts them from 0. Stores the
 * identifier and 1 or 2 values for OrvanePackSet, and returns the number of values. Returns 0, and
 * stores nothing, after the last command and if there is no such preset. All presets have the same
 * commands and set everything that a listener can set. So a preset leaves nothing of another one.
 * docs/presets.md says what each preset does. */
ORVANE_INLINE int32_t OrvanePresetCommand(const char* preset, int32_t index, int32_t* id,
                                          int32_t values[2]) {
    /* clang-format off */
    static const char* const names[] = {
/* generated: preset-names */
        "music",
        "bass",
        "steady",
        "night",
        "voice",
        "loud",
        "off"
/* end generated */
    };
    static const int32_t commands[][2] = { /* identifier; band or -1 */
/* generated: preset-commands */
        {0x20003, -1},
        {0x20004, -1},
        {0x20005, -1},
        {0x20007, 0},
        {0x20007, 1},
        {0x20007, 2},
        {0x20007, 3},
        {0x20007, 4},
        {0x20007, 5},
        {0x20007, 6},
        {0x20007, 7},
        {0x20007, 8},
        {0x20007, 9},
        {0x20009, -1},
        {0x2000A, -1},
        {0x2000B, -1},
        {0x2000C, -1},
        {0x20002, -1},
        {0x20006, -1},
        {0x20008, -1}
/* end generated */
    };
    static const short numbers[][sizeof commands / sizeof commands[0]] = {
/* generated: preset-values */
        {100, 100, 100, -10, 50, 50, 0, 0, -5, -15, 0, 5, 5, 120, 10, 88, 100, 0, 1, 1},
        {100, 100, 100, -20, 100, 80, 5, -5, -15, 0, -10, 5, -5, 100, 30, 70, 100, 0, 1, 1},
        {100, 100, 600, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 100, 0, 65, 100, 1, 0, 0},
        {300, 100, 1200, -70, -40, -10, 0, 0, 0, 0, 10, -10, -5, 100, 0, 25, 100, 1, 1, 0},
        {200, 100, 400, -60, -55, -45, -20, 0, 5, 20, 40, -15, 10, 100, 0, 55, 100, 1, 1, 0},
        {100, 100, 400, -10, 50, 50, 0, 0, -5, -15, 0, 5, 5, 120, 10, 125, 78, 1, 1, 1},
        {100, 100, 100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 100, 0, 100, 100, 0, 0, 0}
/* end generated */
    };
    /* clang-format on */
    const int32_t last = (int32_t)(sizeof commands / sizeof commands[0]) - 1;
    size_t row;
    if (index < 0 || index > last) return 0;
    for (row = 0; row < sizeof names / sizeof names[0]; ++row) {
        int32_t count = 0;
        if (strcmp(names[row], preset) != 0) continue;
        *id = commands[index][0];
        if (commands[index][1] >= 0) values[count++] = commands[index][1];
        values[count++] = numbers[row][index];
        return count;
    }
    return 0;
}

#endif
