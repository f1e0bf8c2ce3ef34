/* Filters raw PCM: 16-bit stereo in this machine's byte order, from standard input to standard
 * output.   filter RATE PRESET [FLAGS] <in.pcm >out.pcm
 * The output has as many frames as the input, and each lies where it lay in the input. */
#include <orvane.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { FRAMES = 512 };

int main(int argc, char** argv) {
    static int16_t samples[2 * FRAMES];
    char error[ORVANE_ERROR_SIZE] = "usage: filter RATE PRESET [FLAGS] <in.pcm >out.pcm";
    orvane_stream* stream = NULL;
    size_t frames, skipped, before, after;

    if (argc > 2)
        stream = orvane_create((uint32_t)atol(argv[1]), 2, argv[2], NULL,
                               argc > 3 ? (unsigned)atoi(argv[3]) : 0, error, sizeof error);
    if (stream == NULL) {
        fprintf(stderr, "%s\n", error);
        return 1;
    }
    before = after = orvane_latency(stream); /* frames to skip first, and to follow the last one */
    for (;;) {
        frames = fread(samples, sizeof samples[0] * 2, FRAMES, stdin);
        if (frames == 0) { /* silence follows the last frame */
            frames = after < FRAMES ? after : FRAMES;
            after -= frames;
            memset(samples, 0, sizeof samples);
        }
        if (frames == 0) break;
        orvane_process_int16(stream, samples, samples, frames);
        skipped = before < frames ? before : frames;
        before -= skipped;
        fwrite(samples + 2 * skipped, sizeof samples[0] * 2, frames - skipped, stdout);
    }
    orvane_destroy(stream);
    return ferror(stdin) || fflush(stdout) != 0 || ferror(stdout);
}
