// Draws an audio file before and after the chain.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "client/settings.h"
#include "client/stream.h"
#include "render/audio/output_file.h"
#include "render/command.h"
#include "render/common_options.h"
#include "render/effect_library.h"

class PictureCommand final : public Command {
public:
    explicit PictureCommand(CLI::App& program);
    void Run() override;

private:
    CommonOptions common;
    std::string input, picture;
    bool noDither = false;
};

// UsageError if the picture would take the place of the audio. role: "IN" or "OUT"; stream: the
// file that "-" stands for.
void CheckPictureName(const std::string& picture, const char* role, const std::string& audio,
                      const char* stream);

struct BeforeAndAfter {
    std::string title, preset;
    Settings settings;
    StreamFormat format;
};

// Draws `pcm`, interleaved, before and after the chain onto the temporary file of `png`, which is
// to be called `picture`. The caller commits it.
void DrawBeforeAndAfter(const BeforeAndAfter& piece, const EffectLibrary& library,
                        const std::vector<int16_t>& pcm, const std::string& picture,
                        const OutputFile& png);
