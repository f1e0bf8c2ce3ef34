// orvane: runs audio files through the effect library as the framework would.
#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <initializer_list>
#include <sstream>
#include <stdexcept>

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

int Run(int argc, char** argv) {
    CLI::App app(
        "Runs audio through the Quenthra Orvane v2 effect library, as the framework would.",
        "orvane");
    app.require_subcommand(1);
    AddManualTo(app);
    AddPresetListTo(app);
    app.set_version_flag("--version", "orvane " + LibraryVersionText());

    RenderCommand render(app);
    PictureCommand picture(app);
    CompareCommand compare(app);
    ResponseCommand response(app);
    ToneCommand tone(app);
    InfoCommand info(app);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        std::ostringstream text;
        const int status = app.exit(success, text, text);
        PrintToStandardOutput(text.str());
        return status;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    } catch (const std::invalid_argument& error) {  // CLI11's for what a switch can't be
        throw UsageError(error.what());
    }
    for (Command* const command :
         std::initializer_list<Command*>{&render, &picture, &compare, &response, &tone, &info})
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
        fmt::print(stderr, "orvane: {} (see orvane --help)\n", error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        fmt::print(stderr, "orvane: {}\n", error.what());
        return kCannot;
    }
}
