/* Prints cases and the C header's results, one a line. RecordsTest.java makes the results again:
 *   set ID VALUE... = BYTES        get ID = BYTES
 *   reply BYTES = STATUS VALUE     level DB = LEVEL     term BAND THIRD = TERM
 *   preset NAME INDEX = ID VALUE...
 *   id NAME = NUMBER               text NAME = TEXT */
#include <stdio.h>

#include "android/quenthra_orvane.h"

static void PrintBytes(const unsigned char* bytes, size_t size) {
    size_t i;
    for (i = 0; i < size; ++i) printf("%02x", (unsigned)bytes[i]);
}

static void Reply(int32_t status, int32_t value, size_t bytes) {
    int32_t reply[5];
    reply[0] = status;
    reply[1] = 4;
    reply[2] = 4;
    reply[3] = ORVANE_PARAM_GET_VERSION;
    reply[4] = value;
    printf("reply ");
    PrintBytes((const unsigned char*)reply, bytes);
    value = 0;
    status = OrvaneReadReply(reply, bytes, &value);
    printf(" = %ld %ld\n", (long)status, (long)value);
}

int main(void) {
    static const int32_t values[3] = {3, -45, -2147483647 - 1};
    unsigned char record[ORVANE_SET_MAX_BYTES];
    int32_t i, id, count, band[2] = {0, 0};
    printf("set %ld 3 -45 -2147483648 = ", (long)ORVANE_PARAM_EQUALIZER_BANDLEVEL);
    PrintBytes(record, OrvanePackSet(record, ORVANE_PARAM_EQUALIZER_BANDLEVEL, values, 3));
    printf("\nget %ld = ", (long)ORVANE_PARAM_GET_VERSION);
    PrintBytes(record, OrvanePackGet(record, ORVANE_PARAM_GET_VERSION));
    printf("\n");
    Reply(0, -7, 20);
    Reply(0, 5, 16);
    Reply(-22, 5, 12);
    Reply(0, 5, 3);
    for (i = -42; i <= 11; ++i) printf("level %ld = %ld\n", (long)i, (long)OrvaneLevelOfDb(i));
    for (i = -1; i <= 10; ++i)
        printf("term %ld %ld = %ld\n", (long)i, 3 * (long)i, (long)OrvaneBandTerm(i, 3 * i));
    for (i = -1; (count = OrvanePresetCommand("loud", i, &id, band)) > 0 || i < 0; ++i)
        if (count > 0)
            printf(count == 1 ? "preset loud %ld = %ld %ld\n" : "preset loud %ld = %ld %ld %ld\n",
                   (long)i, (long)id, (long)band[0], (long)band[1]);
    printf("id PARAM_LIMITER_GATE = %ld\n", (long)ORVANE_PARAM_LIMITER_GATE);
    printf("text UUID_TEXT = %s\n", ORVANE_UUID);
    return 0;
}
