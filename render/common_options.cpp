#include "render/common_options.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "render/audio/whole_write.h"
#include "render/failure.h"

namespace {

// Returns the folders of the library's builds that this processor can run, relative to the
// library's folder. The fastest is first.
std::vector<std::string> BuildsForThisProcessor() {
#if defined(__x86_64__)
    if (__builtin_cpu_supports("avx2")) return {"avx2", ""};
#endif
    return {""};
}

// Reads the value of --match: a number, "true" if it has no value, or "" if it wasn't given.
std::optional<MatchWish> ReadMatch(const std::string& text) {
    if (text.empty()) return std::nullopt;
    if (text == "true") return MatchWish{};
    double lufs = 0;
    if (!ReadNumber(text, &lufs) || !(lufs >= -60 && lufs <= 0))
        throw UsageError("--match={} is not a loudness from -60 to 0 LUFS", text);
    return MatchWish{lufs};
}

// Reads the value of --ceiling, such as "-1", "-1dB" or "-1dBTP".
double ReadCeiling(const std::string& text) {
    constexpr double kLowestDb = -60;
    std::string number = text;
    for (const char* const unit : {"dBTP", "dB"})
        if (number.ends_with(unit)) number.resize(number.size() - std::strlen(unit));
    double db = 0;
    if (!ReadNumber(number, &db) || !(db >= kLowestDb && db <= 0))
        throw UsageError("--ceiling={} is not a true peak from -60dB to 0dB", text);
    return db;
}

double ReadQuality(const std::string& text) {
    double quality = 0;
    if (!ReadNumber(text, &quality) || !(quality >= 0 && quality <= 10))
        throw UsageError("--quality={} is not a number from 0 to 10", text);
    return quality;
}

}  // namespace

std::filesystem::path ProgramFolder() {
    std::error_code ignored;
    return std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
}

void LibraryOptions::AddTo(Options& options) {
    options
        .Add("--library", &path,
             "the effect library (default: the one that is installed with this program)")
        .Type("FILE");
    options.AddFlag("--log", &log, "show the library's log lines");
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
             "frames per call of the library. The automatic level (playback-gain) measures once "
             "per buffer, so this changes the sound")
        .Type("FRAMES")
        .Within(1, 65536)
        .ShowDefault();
    options.AddFlag("-f,--force", &overwrite, "overwrite files that exist");
    options.AddFlag("-q,--quiet", &quiet, "print only what went wrong or was lost");
    library.AddTo(options);
    AddPresetListTo(options);
}

void CommonOptions::Fill(RenderJob* job) const {
    job->settings = settings.Resolve();
    job->preset = settings.PresetName();
    job->tone = settings.Tone();
    job->bufferFrames = bufferFrames;
    job->overwrite = overwrite;
    job->showProgress = !quiet && isatty(STDERR_FILENO) != 0;
}

void RenderOptions::AddTo(Options& options, RenderJob* job) {
    options.AddFlag("--strict-rate", &job->strictRate, "fail instead of resampling");
    options.AddFlag("--skip-existing", &skipExisting,
                    "do nothing if the output exists. An existing output is complete, so an "
                    "interrupted run can be continued");
    options.AddFlag(
        "--keep-times", &job->keepTimes,
        "give each output the times of its source: when it was last read and last written");
    options.AddFlag("--json", &json, "print the report as JSON on standard output");
    options.AddFlag("--no-dither", &noDither, "round to 16 bits without dither");
    AddColdStartTo(options, &job->coldStart);
    options.AddFlag("--match", &match,
                    "find the output gain that makes the output as loud as the input. --match=-16 "
                    "aims at -16 LUFS. The input is played several times");
    options
        .Add(
            "--ceiling", [this](const std::string& text) { ceiling = text; },
            "lower the whole output until its true peak stays below this. In a lossy format, the "
            "decoded output counts. The output is made again until it fits, at most eight times")
        .Type("-1dB");
    options.AddSwitch(
        "--gain-tags,!--no-gain-tags", [this](bool on) { gainTags = on; },
        "write the loudness of the output into its tags, for players that level pieces: R128_* in "
        "Opus, REPLAYGAIN_* elsewhere. By default FLAC, Ogg, Opus and MP3 get it, and WAV and AIFF "
        "if the source has it. --quiet measures nothing and writes it only with --gain-tags");
    options
        .Add(
            "--quality", [this](const std::string& text) { quality = ReadQuality(text); },
            "quality of a lossy output, from 0 (smallest file) to 10")
        .Type("NUMBER");
    common.AddTo(options);
}

void RenderOptions::Fill(RenderJob* job) const {
    common.Fill(job);
    job->dither = !noDither;
    if (skipExisting && common.overwrite)
        throw UsageError("--skip-existing and --force contradict each other");
    job->match = ReadMatch(match);
    if (job->match && common.settings.Gives(PARAM_OUTPUT_GAIN))
        throw UsageError("--match and --output-gain set the same gain");
    if (job->match) job->tone.headroom = false;
    if (ceiling) job->ceilingDb = ReadCeiling(*ceiling);
    if (gainTags) job->gainTags = *gainTags ? GainTags::kAlways : GainTags::kNever;
    job->quality = quality;
    const bool measures = json || !common.quiet || ceiling || job->gainTags == GainTags::kAlways;
    job->metering = measures ? Metering::kEverything : Metering::kNothing;
}

bool RenderOptions::Skips(const std::vector<std::string>& outputs) const {
    const auto exists = [](const std::string& output) {
        std::error_code ignored;
        return std::filesystem::is_regular_file(output, ignored);
    };
    if (!skipExisting || !std::all_of(outputs.begin(), outputs.end(), exists)) return false;
    if (!common.quiet)
        for (const std::string& output : outputs) PrintMessage(output + " exists already, skipped");
    return true;
}

void RenderOptions::CheckQuality(const std::vector<std::string>& outputs) const {
    const auto isLossy = [](const std::string& output) { return OutputFormat(output).IsLossy(); };
    if (quality && std::none_of(outputs.begin(), outputs.end(), isLossy))
        throw UsageError("--quality needs a lossy output: .opus, .ogg or .mp3");
}

void RenderOptions::Finish(Report* report) const {
    common.settings.Save(report->settings, common.overwrite);
    for (const std::string& line : common.settings.Idle()) report->notes.push_back(line);
    if (json)
        PrintToStandardOutput(JsonOf(*report));
    else if (!common.quiet)
        PrintToStandardError(TextOf(*report));
    PrintWarnings(*report);
}

void AddPresetListTo(Options& options) {
    options.AddPrinting("--list-presets", PresetList, "print the presets");
}

void AddColdStartTo(Options& options, bool* coldStart) {
    options.AddFlag("--cold-start", coldStart,
                    "don't let the chain settle on silence first. The automatic level then fades "
                    "in over a hundred buffers or more, as when the framework starts the effect");
}
