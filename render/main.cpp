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
#include "render/failure.h"
#include "render/info_command.h"
#include "render/picture_command.h"
#include "render/render_command.h"
#include "render/response_command.h"

namespace {

constexpr int kCannot = 1;
constexpr int kWrongUsage = 2;

// Shows an option that undoes a switch without the value that CLI11 puts behind it.
class HelpFormatter : public CLI::Formatter {
public:
    std::string make_option_name(const CLI::Option* option, bool positional) const override {
        std::string name = CLI::Formatter::make_option_name(option, positional);
        const std::string value = "{false}";
        if (const size_t at = name.find(value); at != std::string::npos)
            name.erase(at, value.size());
        return name;
    }
};

int Run(int argc, char** argv) {
    CLI::App app(
        "Runs audio through the Quenthra Orvane v2 effect library, as the framework would.",
        "orvane");
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormatter>());
    app.get_formatter()->column_width(34);
    AddPresetListTo(app);
    app.set_version_flag("--version", LibraryVersionText());

    RenderCommand render(app);
    PictureCommand picture(app);
    ResponseCommand response(app);
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
         std::initializer_list<Command*>{&render, &picture, &response, &info})
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
        std::fprintf(stderr, "orvane: %s (see orvane --help)\n", error.what());
        return kWrongUsage;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "orvane: %s\n", error.what());
        return kCannot;
    }
}
