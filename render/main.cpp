// orvane: runs audio files through the effect library as the framework would.
#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#include "render/audio/output_file.h"
#include "render/audio/whole_write.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/failure.h"

namespace {

constexpr int kCannot = 1;
constexpr int kWrongUsage = 2;
constexpr int kDamagedSource = 3;

int Run(int argc, char** argv) {
    CommandLine line("orvane",
                     "Processes audio with the Quenthra Orvane v2 effect library, as the Android "
                     "framework would.",
                     HelpFooter());
    AddManualTo(line);
    AddPresetListTo(line);
    line.AddVersion("orvane " + LibraryVersionText());

    // Help and manual page list the commands in this order.
    std::vector<std::unique_ptr<Command>> commands;
    for (const auto make :
         {MakeRenderCommand, MakeAlbumCommand, MakePictureCommand, MakeCompareCommand,
          MakeResponseCommand, MakeToneCommand, MakeInfoCommand})
        commands.push_back(make(line));
    if (!line.Parse(argc, argv)) return 0;
    for (const auto& command : commands)
        if (command->IsAsked()) command->Run();
    return 0;
}

// A caller may have closed the standard streams. The next file that is opened would then take the
// place of one, and messages would end up in the audio. So a descriptor that can only fail is put
// in each free place.
void OccupyStandardStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(fd, F_GETFD) < 0) open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
}

}  // namespace

int main(int argc, char** argv) {
    OccupyStandardStreams();
    RemoveTemporariesOnSignals();
    try {
        return Run(argc, argv);
    } catch (const UsageError& error) {
        PrintMessage(std::string(error.what()) + " (see orvane --help)");
        return kWrongUsage;
    } catch (const DamagedSource& damage) {
        PrintMessage(damage.what());
        return kDamagedSource;
    } catch (const std::bad_alloc&) {
        PrintMessage("not enough memory");
        return kCannot;
    } catch (const std::exception& error) {
        PrintMessage(error.what());
        return kCannot;
    }
}
