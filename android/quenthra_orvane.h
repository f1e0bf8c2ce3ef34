/* What a native application needs to control Quenthra Orvane v2: the identifiers and the records
 * of the parameter commands. C89 with <stdint.h>, C++ too; this file is all there is to copy.
 *
 * A record is words of 32 bits in the device's byte order: status, size of the identifier (4),
 * size of the values, identifier, values. A value in units is sent as an integer, see each
 * identifier: level -0.45 of band 3 goes as the two values 3 and -45. docs/controlling.md says
 * what each one does. Thread: any; nothing is kept. */
#ifndef QUENTHRA_ORVANE_H
#define QUENTHRA_ORVANE_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

/* Implementation and type of the effect. Find it by the implementation: the type is another one
 * while the device is in safe mode. */
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
    /* 0 to 1 (full scale) times 100; at first 0.9999, which can't be sent: 100 is the nearest */
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
    ORVANE_REPLY_BYTES = 20 /* of a get: what to offer as the reply size */
};

#if defined(__cplusplus) || (defined(__STDC_VERSION__) && __STDC_VERSION__ >= 199901L)
#define ORVANE_INLINE static inline
#elif defined(__GNUC__)
#define ORVANE_INLINE static __attribute__((unused))
#else
#define ORVANE_INLINE static
#endif

/* Packs the data of a set-parameter command: `count` values, 1 to ORVANE_MAX_VALUES, for `id`.
 * record: ORVANE_SET_MAX_BYTES bytes at any address. Returns the size of the command in bytes, 0
 * (and nothing is written) for another count. */
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

/* Packs the data of a get-parameter command. record: ORVANE_GET_BYTES bytes at any address.
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

/* Reads the reply of a get-parameter command, `bytes` as the command left the reply size. Returns
 * 0 and stores the value, or the status of a refusal (-22: no such parameter, or no whole reply),
 * and *value stays. */
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

/* The value to send as ORVANE_PARAM_EQUALIZER_BANDLEVEL for a gain in whole decibels. Below -40
 * the band is mute (-100), above 9 it has the highest level (100, 9.5 dB). */
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

#endif
