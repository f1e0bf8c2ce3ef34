// orvane: runs audio files through the effect library as the framework would.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <stdexcept>

#include "tools/failure.h"
#include "tools/info.h"
#include "tools/output_file.h"
#include "tools/render.h"
#include "tools/settings_options.h"

namespace {

constexpr int kCannot = 1;
constexpr int kWrongUsage = 2;

void AddPresetListTo(CLI::App& command) {
    command.add_flag_callback(
        "--list-presets",
        [] {
            std::fputs(PresetList().c_str(), stdout);
            throw CLI::Success();  // before anything that is missing is missed
        },
        "print the presets");
}

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

// What every command that runs the library takes.
struct CommonOptions {
    std::string library;
    bool log = false, overwrite = false, quiet = false;
    uint32_t bufferFrames = 1024;
    SettingsOptions settings;

    void AddTo(CLI::App& command) {
        settings.AddTo(command);
        command
            .add_option("--buffer", bufferFrames,
                        "frames per call of the library; the playback gain measures once per "
                        "buffer, so this changes the sound")
            ->type_name("FRAMES")
            ->check(CLI::Range(1, 65536))
            ->capture_default_str();
        command.add_flag("-f,--force", overwrite, "overwrite files that exist");
        command.add_flag("-q,--quiet", quiet, "say nothing but errors");
        AddLibraryTo(command);
        AddPresetListTo(command);
    }

    void AddLibraryTo(CLI::App& command) {
        command
            .add_option("--library", library,
                        "the effect library; without it, the one beside this program")
            ->type_name("FILE");
        command.add_flag("--log", log, "show what the library logs");
    }
};

// Beside the program, or where an installation puts it.
std::string FindLibrary(const std::string& given) {
    if (!given.empty()) return given;
    constexpr const char* kName = "libqth_orvane_ics_NOVFP.so";
    std::error_code ignored;
    const std::filesystem::path folder =
        std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    for (const std::filesystem::path& path : {folder / kName, folder / ".." / "lib" / kName})
        if (std::filesystem::exists(path, ignored)) return path.string();
    throw Failure(std::string(kName) + " is not in " + folder.string() +
                  " (--library names another place)");
}

void RunRender(const CommonOptions& common, RenderJob job, bool json) {
    if (json && job.output == "-")
        throw UsageError("--json and the audio cannot both go to standard output");
    if (job.output == "-" && isatty(STDOUT_FILENO) != 0)
        throw UsageError("standard output is a terminal; pipe the audio somewhere");
    job.measure = json || !common.quiet;
    job.showProgress = !common.quiet && isatty(STDERR_FILENO) != 0;
    const EffectLibrary library(FindLibrary(common.library), common.log);
    Report report = Render(job, library);
    for (const std::string& line : common.settings.Idle()) report.notes.push_back(line);
    if (json)
        std::fputs(JsonOf(report).c_str(), stdout);
    else if (!common.quiet)
        std::fputs(TextOf(report).c_str(), stderr);
}

int Run(int argc, char** argv) {
    CLI::App app(
        "Runs audio through the Quenthra Orvane v2 effect library, as the framework would.",
        "orvane");
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormatter>());
    app.get_formatter()->column_width(34);
    AddPresetListTo(app);
    app.set_version_flag("--version", LibraryVersionText());

    CommonOptions common;
    RenderJob job;
    ResponseJob response;
    bool noDither = false, json = false;

    CLI::App* render = app.add_subcommand("render", "process an audio file");
    render->add_option("IN", job.input, "audio file; - is standard input")->required();
    render
        ->add_option("OUT", job.output, "its ending names the format; - is WAV on standard output")
        ->required();
    render->add_option("--picture", job.picture, "also draw before and after")->type_name("PNG");
    render->add_flag("--keep-delay", job.keepDelay, "don't remove the chain's delay");
    render->add_flag("--strict-rate", job.strictRate, "refuse to resample");
    render->add_flag("--json", json, "report as JSON on standard output");

    CLI::App* picture = app.add_subcommand("picture", "draw an audio file before and after");
    picture->add_option("IN", job.input, "audio file; - is standard input")->required();
    picture->add_option("OUT", job.picture, "PNG file")->required();
    for (CLI::App* command : {render, picture})
        command->add_flag("--no-dither", noDither, "round to 16 bits without dither");
    for (CLI::App* command : {render, picture})
        command->add_flag("--cold-start", job.coldStart,
                          "don't let the chain settle on silence first: the playback gain fades in "
                          "over a hundred buffers, as at the framework's start");

    CLI::App* responseCommand =
        app.add_subcommand("response", "draw the frequency response of equalizer and enhancer");
    responseCommand->add_option("OUT", response.picture, "PNG file")->required();
    responseCommand->add_option("--rate", response.rateHz, "sampling rate")
        ->type_name("HZ")
        ->check(CLI::Range(32000, 48000))
        ->capture_default_str();
    responseCommand->add_option("--channels", response.channels, "1 or 2")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
    for (CLI::App* command : {render, picture, responseCommand}) common.AddTo(*command);

    CLI::App* info = app.add_subcommand("info", "what the library says of itself");
    info->add_option("LIBRARY", common.library, "the effect library");
    info->add_flag("--log", common.log, "show what the library logs");

    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    } catch (const std::invalid_argument& error) {  // CLI11's for what a switch can't be
        throw UsageError(error.what());
    }
    if (info->parsed()) {
        const std::string path = FindLibrary(common.library);
        std::fputs(LibraryInfo(path, EffectLibrary(path, common.log)).c_str(), stdout);
        return 0;
    }
    job.settings = common.settings.Resolve();
    job.preset = common.settings.PresetName();
    job.bufferFrames = common.bufferFrames;
    job.overwrite = common.overwrite;
    job.dither = !noDither;
    if (render->parsed()) {
        RunRender(common, job, json);
        common.settings.Save(common.overwrite);
        return 0;
    }
    const EffectLibrary library(FindLibrary(common.library), common.log);
    if (picture->parsed()) {
        DrawPictureOf(job, library);
        common.settings.Save(common.overwrite);
        return 0;
    }
    response.settings = job.settings;
    response.bufferFrames = job.bufferFrames;
    response.overwrite = job.overwrite;
    DrawResponseOf(response, library);
    common.settings.Save(common.overwrite);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
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
