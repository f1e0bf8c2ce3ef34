// Plays the music through an instance with everything switched on, in whole buffers of as many
// frames as the argument says: the load under which instructions are counted. Linked statically, so
// that the emulator knows every function's name.
#include <cstdio>

#include "bench/music.h"
#include "host/library.h"
#include "tests/framework_client.h"

int main(int argc, char** argv) {
    const long frames = argc == 2 ? std::strtol(argv[1], nullptr, 10) : 0;
    if (frames < 1 || frames > 65536) {
        std::fputs("usage: chain_load FRAMES\n", stderr);
        return 2;
    }
    const std::vector<int16_t> music = ReadMusic();
    const size_t step = 2 * static_cast<size_t>(frames);
    std::vector<int16_t> out(step);
    Instance instance(AELI);
    instance.Start(44100, 2);
    for (size_t at = 0; at + step <= music.size(); at += step)
        if (instance.Process(music.data() + at, out.data(), static_cast<uint32_t>(frames)) != 0)
            return 1;
    return 0;
}
