// orvane: runs audio files through the effect library as the framework would.
#include <fcntl.h>
#include <fmt/core.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <initializer_list>
#include <new>

#include "render/album_command.h"
#include "render/audio/output_file.h"
#include "render/audio/whole_write.h"
#include "render/common_options.h"
#include "render/compare_command.h"
#include "render/failure.h"
#include "render/info_command.h"
#include "render/manual.h"
#include "render/picture_command.h"
#include "render/render_command.h"
#include "render/response_command.h"
#include "render/tone_command.h"

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

    RenderCommand render(line);
    AlbumCommand album(line);
    PictureCommand picture(line);
    CompareCommand compare(line);
    ResponseCommand response(line);
    ToneCommand tone(line);
    InfoCommand info(line);
    if (!line.Parse(argc, argv)) return 0;
    for (Command* const command : std::initializer_list<Command*>{
             &render, &album, &picture, &compare, &response, &tone, &info})
        if (command->IsAsked()) command->Run();
    return 0;
}

// A caller may have closed the standard streams. Then the next file opened would take the place of
// one, and what is said there would end up in the audio; so what can only fail stands there.
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
