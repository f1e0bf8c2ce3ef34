// The tracks of a folder through one instance of the chain, so that nothing is heard where one
// goes over into the next.
#pragma once
#include <string>

#include "render/album_plan.h"
#include "render/chain_run.h"
#include "render/command.h"
#include "render/common_options.h"

class AlbumCommand final : public Command {
public:
    explicit AlbumCommand(Options& program);
    void Run() override;

private:
    void RunAlbum(const Album& album, const EffectLibrary& library);

    RenderOptions render;
    RenderJob job;
    std::string format;  // with a dot, "" for none
};
