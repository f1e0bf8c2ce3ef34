// What the commands ask of an audio file before they run it.
#pragma once
#include <string>

#include "render/audio/audio_reader.h"

// Throws Failure if the effect can't take as many channels, or if the sampling rate is no rate of
// sound: below 1000 Hz or above 768000 Hz.
void CheckFormat(const std::string& input, const SampleReader& reader);

// The title that the file carries, else its name.
std::string TitleOf(const std::string& input, const AudioReader& reader);
