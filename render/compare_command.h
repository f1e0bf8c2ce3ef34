// Writes the page for browsers with a piece inside: source and result aligned, equally loud, and
// all settings at hand. The page holds the source and the library; the result is made as it plays.
#pragma once
#include <string>

#include "render/command.h"
#include "render/settings_options.h"

class CompareCommand final : public Command {
public:
    explicit CompareCommand(Options& program);
    void Run() override;

private:
    // The page without a piece. Failure if there is none.
    std::string Page() const;
    // Returns the element that holds the piece. *damage: as PcmSource::Damage says.
    std::string PieceElement(Settings* played, std::vector<std::string>* damage) const;

    SettingsOptions settings;
    std::string input, output, page;
    bool overwrite = false, noDither = false;
};
