/* Prints cases and what the C header makes of them, one a line, for RecordsTest.java to make again:
 *   set ID VALUE... = BYTES        get ID = BYTES
 *   reply BYTES = STATUS VALUE     level DB = LEVEL     id NAME = NUMBER     text NAME = TEXT */
#include <stdio.h>

#include "android/quenthra_orvane.h"

static void PrintBytes(const unsigned char* bytes, size_t size) {
    size_t i;
    for (i = 0; i < size; ++i) printf("%02x", (unsigned)bytes[i]);
}

static void Set(int32_t id, const int32_t* values, int32_t count) {
    unsigned char record[1 + ORVANE_SET_MAX_BYTES];
    int32_t i;
    const size_t size = OrvanePackSet(record + 1, id, values, count);
    printf("set %ld", (long)id);
    for (i = 0; i < count; ++i) printf(" %ld", (long)values[i]);
    printf(" = ");
    PrintBytes(record + 1, size);
    printf("\n");
}

static void Reply(int32_t status, int32_t valueSize, int32_t last, size_t bytes) {
    int32_t reply[5], value = 0;
    reply[0] = status;
    reply[1] = 4;
    reply[2] = valueSize;
    reply[3] = ORVANE_PARAM_GET_VERSION;
    reply[4] = last;
    printf("reply ");
    PrintBytes((const unsigned char*)reply, bytes);
    status = OrvaneReadReply(reply, bytes, &value);
    printf(" = %ld %ld\n", (long)status, (long)value);
}

int main(void) {
    static const int32_t values[4] = {3, -45, 2147483647, -2147483647 - 1};
    unsigned char request[ORVANE_GET_BYTES];
    int32_t i;
    for (i = 1; i <= ORVANE_MAX_VALUES; ++i) {
        Set(ORVANE_PARAM_EQUALIZER_BANDLEVEL, values, i);
        Set(ORVANE_PARAM_OUTPUT_GAIN, values + ORVANE_MAX_VALUES - i, i);
    }
    printf("get %ld = ", (long)ORVANE_PARAM_GET_VERSION);
    PrintBytes(request, OrvanePackGet(request, ORVANE_PARAM_GET_VERSION));
    printf("\n");
    Reply(0, 4, 0x02010002, 20);
    Reply(0, 4, -7, 20);
    Reply(0, 0, 5, 20);
    Reply(0, 4, 5, 16);
    Reply(-22, 0, 5, 12);
    Reply(0, 4, 5, 3);
    for (i = -42; i <= 11; ++i) printf("level %ld = %ld\n", (long)i, (long)OrvaneLevelOfDb(i));
    printf("id PARAM_GET_CHANNELS = %ld\n", (long)ORVANE_PARAM_GET_CHANNELS);
    printf("id PARAM_SET_TIMESTAMP_ENABLE = %ld\n", (long)ORVANE_PARAM_SET_TIMESTAMP_ENABLE);
    printf("id PARAM_LIMITER_GATE = %ld\n", (long)ORVANE_PARAM_LIMITER_GATE);
    printf("text UUID_TEXT = %s\ntext TYPE_TEXT = %s\n", ORVANE_UUID, ORVANE_TYPE);
    return 0;
}
