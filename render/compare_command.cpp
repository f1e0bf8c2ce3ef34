#include <sndfile.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <span>
#include <string>

#include "client/controls.h"
#include "client/json.h"
#include "render/audio/audio_reader.h"
#include "render/audio/conversion.h"
#include "render/audio/output_file.h"
#include "render/audio/pcm.h"
#include "render/audio/sndfile_handle.h"
#include "render/audio/whole_write.h"
#include "render/chain_run.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/failure.h"
#include "render/report.h"
#include "render/settings_options.h"

namespace {

constexpr const char* kPageName = "orvane.html";
constexpr const char* kPlaceOfPiece = "<!-- piece -->";
constexpr uint32_t kMostMinutes = 10;
constexpr size_t kMostPageBytes = 1 << 24;  // read of the file that --page names

// Encodes 16-bit samples as a FLAC file in memory. The constructor and Write throw Failure.
class FlacBytes {
public:
    FlacBytes(uint32_t rateHz, uint32_t channels) {
        SF_INFO info{};
        info.samplerate = static_cast<int>(rateHz);
        info.channels = static_cast<int>(channels);
        info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
        SF_VIRTUAL_IO through{Length, Seek, nullptr, WriteBytes, Tell};
        file.reset(sf_open_virtual(&through, SFM_WRITE, &info, &target));
        if (file == nullptr)
            throw Failure("the piece cannot be encoded as FLAC: {}", sf_strerror(nullptr));
    }
    FlacBytes(const FlacBytes&) = delete;
    FlacBytes& operator=(const FlacBytes&) = delete;

    // Appends whole interleaved frames.
    void Write(std::span<const int16_t> samples) {
        const auto count = static_cast<sf_count_t>(samples.size());
        if (sf_write_short(file.get(), samples.data(), count) != count)
            throw Failure("the piece cannot be encoded as FLAC: {}", sf_strerror(file.get()));
    }
    // Completes the file and returns its bytes. They stay valid as long as the object. Write must
    // not be called afterwards.
    const std::string& Finish() {
        file.reset();
        return target.bytes;
    }

private:
    // The file in memory. libsndfile seeks back to its header at the end.
    struct Memory {
        std::string bytes;
        size_t at = 0;
    };
    static sf_count_t Length(void* memory) {
        return static_cast<sf_count_t>(static_cast<Memory*>(memory)->bytes.size());
    }
    static sf_count_t Seek(sf_count_t offset, int whence, void* memory) {
        Memory& target = *static_cast<Memory*>(memory);
        const size_t from = whence == SEEK_SET   ? 0
                            : whence == SEEK_CUR ? target.at
                                                 : target.bytes.size();
        target.at = from + static_cast<size_t>(offset);
        return Tell(memory);
    }
    static sf_count_t WriteBytes(const void* from, sf_count_t size, void* memory) {
        Memory& target = *static_cast<Memory*>(memory);
        const auto count = static_cast<size_t>(size);
        if (target.bytes.size() < target.at + count) target.bytes.resize(target.at + count);
        target.bytes.replace(target.at, count, static_cast<const char*>(from), count);
        target.at += count;
        return size;
    }
    static sf_count_t Tell(void* memory) {
        return static_cast<sf_count_t>(static_cast<Memory*>(memory)->at);
    }

    Memory target;  // declared before `file`, which writes to it
    SndfileHandle file;
};

std::string Base64(const std::string& bytes) {
    constexpr const char* kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t n = 0; n < bytes.size(); n += 3) {
        uint32_t three = 0;
        for (size_t k = 0; k < 3; ++k)
            three =
                three << 8 | (n + k < bytes.size() ? static_cast<unsigned char>(bytes[n + k]) : 0U);
        for (size_t k = 0; k < 4; ++k)
            text += n + k > bytes.size() ? '=' : kDigits[three >> (18 - 6 * k) & 63];
    }
    return text;
}

// Adds the keys and values of all settings that are set. Each band has a key of its own, as in the
// page.
void AddValues(const Settings& settings, JsonValue* values) {
    for (const Control& control : kControls)
        if (settings.IsSet(control.parameter->id))
            values->Add(KeyOf(control), ValueOf(settings, control));
}

[[noreturn]] void RefuseLength(const std::string& input) {
    throw Failure("{} is longer than {} minutes, too long for a page", input, kMostMinutes);
}

// Returns the piece as FLAC, at the chain's rate and in 16 bits. Sets *damage to PcmSource::Damage.
std::string FlacOf(const std::string& input, AudioReader& reader, bool dither,
                   std::vector<std::string>* damage) {
    const uint64_t mostFrames = uint64_t{kMostMinutes} * 60 * reader.RateHz();
    if (reader.Frames().value_or(0) > mostFrames) RefuseLength(input);
    const uint32_t rateHz = ChainRateHz(reader.RateHz());
    StreamMeter noMeter(Metering::kNothing);
    PcmSource source(reader, rateHz, dither, noMeter);
    FlacBytes flac(rateHz, reader.Channels());
    std::span<const int16_t> pcm;
    while (source.Read(&pcm)) {
        if (source.FramesRead() > mostFrames) RefuseLength(input);
        flac.Write(pcm);
    }
    if (source.FramesRead() == 0) throw Failure("{} holds no samples", input);
    *damage = source.Damage();
    return flac.Finish();
}

// Writes the page for browsers with a piece inside. The page plays the piece before and after,
// aligned and equally loud, and has all controls. It contains the source and the library, which
// processes the source during playback.
class CompareCommand final : public Command {
public:
    explicit CompareCommand(Options& program);
    void Run() override;

private:
    // Returns the page without a piece. Throws Failure if it is not found.
    std::string Page() const;
    // Returns the element that holds the piece. Sets *damage to PcmSource::Damage.
    std::string PieceElement(Settings* played, std::vector<std::string>* damage) const;

    SettingsOptions settings;
    std::string input, output, page;
    bool overwrite = false, noDither = false;
};

CompareCommand::CompareCommand(Options& program)
    : Command(program, "compare",
              "write a page that plays the piece before and after, equally loud") {
    options.Add("IN", &input, "audio file of at most ten minutes; - is standard input").Required();
    options.Add("OUT", &output, "HTML file, which needs no other file").Required();
    options
        .Add("--page", &page,
             "the page without a piece (default: the one that is installed with this program)")
        .Type("FILE");
    options.AddFlag("--no-dither", &noDither, "round to 16 bits without dither");
    options.AddFlag("-f,--force", &overwrite, "overwrite files that exist");
    settings.AddTo(options);
    AddPresetListTo(options);
}

std::string CompareCommand::Page() const {
    std::filesystem::path path = page;
    if (page.empty()) {
        const std::filesystem::path own = ProgramFolder();
        // Looks beside the program, in the place of an installation, and in the place of a build.
        for (const std::filesystem::path& folder :
             {own, own.parent_path() / "share" / "orvane", own.parent_path() / "web"})
            if (path.empty() && std::filesystem::exists(folder / kPageName))
                path = folder / kPageName;
        if (path.empty())
            throw Failure("{} is not in {} (--page names another place)", kPageName, own.string());
    }
    std::ifstream file(path, std::ios::binary);
    std::string text(kMostPageBytes, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    if (text.find(kPlaceOfPiece) == std::string::npos)
        throw Failure("{} is not an orvane.html, which a piece can be put into", path.string());
    return text;
}

std::string CompareCommand::PieceElement(Settings* played, std::vector<std::string>* damage) const {
    AudioReader reader(input);
    CheckFormat(input, reader);
    const uint32_t rateHz = ChainRateHz(reader.RateHz());
    *played = settings.Resolve();
    settings.Tone().Grant(rateHz, played);
    JsonValue values, piece;
    AddValues(*played, &values);
    piece.Add("name", TitleOf(input, reader))
        .Add("rate", rateHz)
        .Add("settings", values)
        .Add("source", Base64(FlacOf(input, reader, !noDither, damage)));
    std::string json = piece.OneLineOfAscii();
    // "<" is escaped, because a title with "</script" would end the element.
    for (size_t at = 0; (at = json.find('<', at)) != std::string::npos;)
        json.replace(at, 1, "\\u003c");
    return R"(<script type="application/json" id="orvane-piece">)" + json + "</script>";
}

void CompareCommand::Run() {
    if (input == output || AreOneFile(input, output))
        throw UsageError("IN and OUT are the same file");
    OutputFile::CheckName(output, overwrite);
    settings.CheckSave({input, output}, overwrite);
    Settings played;
    std::vector<std::string> damage;
    std::string text = Page();
    text.replace(text.find(kPlaceOfPiece), std::strlen(kPlaceOfPiece),
                 PieceElement(&played, &damage));
    OutputFile html(output, overwrite);
    if (const int error = WriteAll(html.Descriptor(), text.data(), text.size()); error != 0)
        throw Failure("{} cannot be written: {}", output, std::strerror(error));
    html.Commit();
    settings.Save(played, overwrite);
    if (!damage.empty())
        throw DamagedSource("{}; the page contains what could be read", DamageText(input, damage));
}

}  // namespace

std::unique_ptr<Command> MakeCompareCommand(Options& program) {
    return std::make_unique<CompareCommand>(program);
}
