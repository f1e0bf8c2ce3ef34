#include "render/common_options.h"

#include <vector>

#include "render/failure.h"

namespace {

// Folders of builds of the library, the fastest that the processor can run first.
std::vector<std::string> BuildsForThisProcessor() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return {"avx2", ""};
#endif
    return {""};
}

}  // namespace

std::filesystem::path ProgramFolder() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

void LibraryOptions::AddTo(Options& options) {
    options.Add("--library", &path, "the effect library; without it, the one beside this program")
        .Type("FILE");
    options.AddFlag("--log", &log, "show what the library logs");
}

std::string LibraryOptions::Find() const {
    if (!path.empty()) return path;
    constexpr const char* kName = "libqth_orvane_ics_NOVFP.so";
    std::error_code ignored;
    const std::filesystem::path own = ProgramFolder();
    const std::filesystem::path lib = own.parent_path() / "lib";
    for (const std::filesystem::path& folder : {own, lib / "orvane" / "soundfx", lib})
        for (const std::string& build : BuildsForThisProcessor())
            if (std::filesystem::exists(folder / build / kName, ignored))
                return (folder / build / kName).string();
    throw Failure("{} is not in {} (--library names another place)", kName, own.string());
}

void CommonOptions::AddTo(Options& options) {
    settings.AddTo(options);
    options
        .Add("--buffer", &bufferFrames,
             "frames per call of the library; the playback gain measures once per buffer, so this "
             "changes the sound")
        .Type("FRAMES")
        .Within(1, 65536)
        .ShowDefault();
    options.AddFlag("-f,--force", &overwrite, "overwrite files that exist");
    options.AddFlag("-q,--quiet", &quiet, "say only what went wrong or got lost");
    library.AddTo(options);
    AddPresetListTo(options);
}

void AddPresetListTo(Options& options) {
    options.AddPrinting("--list-presets", PresetList, "print the presets");
}

void AddColdStartTo(Options& options, bool* coldStart) {
    options.AddFlag("--cold-start", coldStart,
                    "don't let the chain settle on silence first: the playback gain then fades in "
                    "over a hundred buffers and more, as at the framework's start");
}
