// Prints the bytes of heap that one instance holds at 44100 Hz, stereo, with everything switched
// on, after buffers of 256, 1024 and 2048 frames. The allocator's own headers are included.
#include <malloc.h>

#include <cstdio>

#include "bench/music.h"
#include "table/stages.h"
#include "tests/library_under_test.h"

namespace {
size_t HeapInUse() {
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
}
}  // namespace

int main() {
    const std::vector<int16_t> music = ReadMusic();
    std::vector<int16_t> out(size_t{2} * 2048);
    { Instance warmUp; }  // loads the library
    const size_t before = HeapInUse();
    Instance instance;
    instance.Configure(44100, 2);
    for (const ParameterId id : kStageSwitches) instance.Set(id, {1});
    instance.Enable();
    for (const uint32_t frames : {256U, 1024U, 2048U})
        if (instance.Process(music.data(), out.data(), frames) != 0) return 1;
    std::printf("%zu\n", HeapInUse() - before);
    return 0;
}
