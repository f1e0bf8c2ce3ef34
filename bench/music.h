// Reads the two seconds of music, 44100 Hz, stereo, that the measurements play.
#pragma once
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <vector>

// Returns interleaved 16-bit samples. Ends the program if the file can't be read.
inline std::vector<int16_t> ReadMusic() {
    std::ifstream file(ORVANE_MUSIC, std::ios::binary);
    std::vector<int16_t> samples;
    char low = 0, high = 0;
    while (file.get(low) && file.get(high))
        samples.push_back(
            static_cast<int16_t>(static_cast<uint8_t>(low) | (static_cast<uint8_t>(high) << 8U)));
    if (samples.empty()) std::abort();
    return samples;
}
