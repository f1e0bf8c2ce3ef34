#include "render/album_plan.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <regex.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <set>
#include <string_view>
#include <tuple>

#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/chain_run.h"
#include "render/failure.h"

namespace fs = std::filesystem;

namespace {

// Endings of audio files that can be read but not written. The endings of outputs count as audio,
// too.
constexpr const char* kReadOnlyEndings[] = {".m4a", ".m4b", ".mp4", ".aac", ".wma", ".ape",
                                            ".wv",  ".mpc", ".tta", ".mka", ".mp2", ".aifc",
                                            ".voc", ".dsf", ".dff", ".ac3", ".alac"};

struct Found {
    AlbumTrack track;
    std::string albumTag;
    std::string folder;  // the disc's folder; "" if the track lies in the album's own folder
    uint64_t disc = 0, number = 0;
};

std::string Lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string Ending(const std::string& name) {
    return Lower(fs::path(name).extension().string());
}

bool IsAudioName(const std::string& name) {
    const std::string ending = Ending(name);
    return OutputFormat::IsKnown(name) ||
           std::find(std::begin(kReadOnlyEndings), std::end(kReadOnlyEndings), ending) !=
               std::end(kReadOnlyEndings);
}

// Returns the number at the beginning of a text, 3 for "3/12", or 0 if there is none.
uint64_t NumberAhead(const std::string& text) {
    uint64_t number = 0;
    const size_t start = std::min(text.find_first_not_of(' '), text.size());
    std::from_chars(text.data() + start, text.data() + text.size(), number);
    return number;
}

// Returns the number of the disc in the name of a folder or an album, such as "CD1", "disc 2" or
// "The Album (Disc 2)". Sets *rest to the text before it, without the bracket. Returns 0 if there
// is no number.
uint64_t DiscNumber(const std::string& text, std::string* rest) {
    // This is not std::regex, because its header takes ten seconds to compile.
    static const regex_t pattern = [] {
        regex_t compiled;
        const char expression[] = R"([[:space:]([,:-]*\b(cd|disc|disk)[ ._-]*([0-9]{1,4})\b)";
        if (regcomp(&compiled, expression, REG_EXTENDED | REG_ICASE) != 0) throw std::bad_alloc();
        return compiled;
    }();
    regmatch_t parts[3];  // the whole, the word, the number
    if (regexec(&pattern, text.c_str(), std::size(parts), parts, 0) != 0) return 0;
    const uint64_t number = NumberAhead(text.substr(static_cast<size_t>(parts[2].rm_so)));
    *rest = text.substr(0, static_cast<size_t>(parts[0].rm_so));
    return number;
}

// Returns true if `a` comes before `b`. Neighbouring digits are compared as one number, and upper
// and lower case are the same.
bool ComesBefore(const std::string& a, const std::string& b) {
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    size_t i = 0, k = 0;
    while (i < a.size() && k < b.size()) {
        if (isDigit(a[i]) && isDigit(b[k])) {
            const auto digits = [&isDigit](const std::string& text, size_t* at) {
                while (*at < text.size() && text[*at] == '0') ++*at;
                const size_t start = *at;
                while (*at < text.size() && isDigit(text[*at])) ++*at;
                return std::string_view(text).substr(start, *at - start);
            };
            const std::string_view first = digits(a, &i), second = digits(b, &k);
            if (first.size() != second.size()) return first.size() < second.size();
            if (first != second) return first < second;
            continue;
        }
        const int first = std::tolower(static_cast<unsigned char>(a[i++]));
        const int second = std::tolower(static_cast<unsigned char>(b[k++]));
        if (first != second) return first < second;
    }
    if (a.size() - i != b.size() - k) return a.size() - i < b.size() - k;
    return a < b;
}

// Appends the names of the files and folders in `folder`, in order. Names that begin with a dot are
// left out: they are hidden files, or files that a program is still writing.
void List(const fs::path& folder, std::vector<std::string>* files,
          std::vector<std::string>* folders) {
    std::error_code error;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        std::error_code ignored;
        const fs::file_type type = entry->status(ignored).type();
        if (name.starts_with('.')) continue;
        if (type == fs::file_type::directory)
            folders->push_back(name);
        else if (type == fs::file_type::regular || type == fs::file_type::not_found)
            files->push_back(
                name);  // type not_found: a broken link is reported as unreadable later
    }
    if (error) throw Failure("{} cannot be read: {}", folder.string(), error.message());
    std::sort(files->begin(), files->end(), ComesBefore);
    std::sort(folders->begin(), folders->end(), ComesBefore);
}

class Folder {
public:
    Folder(const std::string& path, const std::string& outPath, const std::string& outEnding)
        : in(path), out(outPath), ending(outEnding) {
        std::error_code ignored;
        if (!fs::is_directory(in, ignored)) throw Failure("{} is not a folder", path);
        std::vector<std::string> folders, none;
        AddFolder("", &folders);
        for (const std::string& name : folders) {
            std::string rest;
            if (DiscNumber(name, &rest) > 0)
                AddFolder(name, &none);
            else
                NoteOther(name);
        }
        if (found.empty())
            throw Failure("{} holds no audio files{}", path,
                          others.empty() ? "" : "; name the folder of one album");
    }

    std::vector<Album> Albums() {
        TellAlbumsApart();
        std::vector<Album> albums;
        for (auto& [key, tracks] : groups) {
            Album album;
            album.title = key;
            if (untagged && !key.empty())
                album.notes.push_back(fmt::format(
                    "{} has no album tag and is counted as a track of {}", *untagged, key));
            Order(&tracks, &album.notes);
            for (const Found* track : tracks) album.tracks.push_back(track->track);
            albums.push_back(std::move(album));
        }
        std::sort(albums.begin(), albums.end(), [](const Album& a, const Album& b) {
            return ComesBefore(a.tracks.front().name, b.tracks.front().name);
        });
        for (Album& album : albums) AddSheets(&album);
        NoteLeftOut(&albums.front());
        return albums;
    }

private:
    void AddFolder(const std::string& name, std::vector<std::string>* folders) {
        std::vector<std::string> files;
        List(in / name, &files, folders);
        for (const std::string& file : files)
            if (IsAudioName(file))
                AddTrack(name, (fs::path(name) / file).string());
            else if (Ending(file) == ".cue")
                sheets.push_back((fs::path(name) / file).string());
            else
                ++leftOut;
    }

    void AddTrack(const std::string& folder, const std::string& name) {
        Found track;
        track.track.name = name;
        track.track.input = (in / name).string();
        fs::path output = out / name;
        if (!ending.empty() || !OutputFormat::IsKnown(name))
            output.replace_extension(ending.empty() ? ".flac" : ending);
        track.track.output = output.string();
        track.track.times = TimesOf(track.track.input);
        const AudioReader reader(track.track.input);
        CheckFormat(track.track.input, reader);
        track.track.rateHz = reader.RateHz();
        track.track.channels = reader.Channels();
        track.track.sixteenBit = reader.IsSixteenBit();
        track.track.frames = reader.Frames();
        track.folder = folder;
        track.albumTag = reader.Tags().First("ALBUM");
        track.number = NumberAhead(reader.Tags().First("TRACKNUMBER"));
        std::string ignored;
        track.disc = NumberAhead(reader.Tags().First("DISCNUMBER"));
        if (track.disc == 0) track.disc = DiscNumber(folder, &ignored);
        std::string title = track.albumTag;
        const uint64_t disc = DiscNumber(title, &title);
        if (disc > 0 && !title.empty()) track.albumTag = title;
        if (track.disc == 0) track.disc = disc;
        found.push_back(std::move(track));
    }

    void NoteOther(const std::string& name) {
        std::vector<std::string> files, folders;
        List(in / name, &files, &folders);
        if (std::any_of(files.begin(), files.end(), IsAudioName)) others.push_back(name);
    }

    void TellAlbumsApart() {
        for (const Found& track : found) groups[track.albumTag].push_back(&track);
        const auto none = groups.find("");
        if (none == groups.end() || groups.size() != 2) return;
        auto& [key, tracks] = *groups.rbegin();  // the group without a tag, "", is the first
        untagged = none->second.front()->track.name;
        if (none->second.size() > 1)
            *untagged += fmt::format(" and {} more", none->second.size() - 1);
        tracks.insert(tracks.end(), none->second.begin(), none->second.end());
        groups.erase(none);
    }

    static void Order(std::vector<const Found*>* tracks, std::vector<std::string>* notes) {
        std::sort(tracks->begin(), tracks->end(), [](const Found* a, const Found* b) {
            return ComesBefore(a->track.name, b->track.name);
        });
        std::map<std::pair<uint64_t, uint64_t>, const Found*> places;
        for (const Found* track : *tracks) {
            std::string fault;
            const auto [place, isNew] = places.try_emplace({track->disc, track->number}, track);
            if (track->number == 0)
                fault = fmt::format("{} has no track number", track->track.name);
            else if (!isNew)
                fault = fmt::format("{} and {} have the same track number",
                                    place->second->track.name, track->track.name);
            if (fault.empty()) continue;
            if (tracks->size() > 1)
                notes->push_back(
                    fmt::format("the tracks are in the order of their names, because {}", fault));
            return;
        }
        tracks->clear();
        for (const auto& [place, track] : places) tracks->push_back(track);
    }

    // Adds the cue sheets of the album's tracks. A sheet belongs to the track of the same name, or
    // to the only track in its folder.
    void AddSheets(Album* album) {
        for (std::string& sheet : sheets) {
            if (sheet.empty()) continue;
            const fs::path folder = fs::path(sheet).parent_path();
            const auto isBeside = [&folder](const Found& track) { return track.folder == folder; };
            const bool isAlone = std::count_if(found.begin(), found.end(), isBeside) == 1;
            for (const AlbumTrack& track : album->tracks) {
                const fs::path name(track.name);
                if (name.parent_path() != folder ||
                    !(isAlone || name.stem() == fs::path(sheet).stem()))
                    continue;
                const FileTimes times = TimesOf((in / sheet).string());
                std::optional<std::string> text = SheetFor(sheet, track.output);
                if (!text) break;
                album->sheets.push_back({(out / sheet).string(), std::move(*text), times});
                sheet.clear();
                break;
            }
        }
    }

    // Returns the text of the sheet with the output's name in its FILE line. Returns nothing if the
    // sheet doesn't describe exactly one file.
    std::optional<std::string> SheetFor(const std::string& sheet, const std::string& output) const {
        constexpr uintmax_t kMostBytes = 1 << 20;
        std::error_code error;
        if (fs::file_size(in / sheet, error) > kMostBytes || error) return std::nullopt;
        std::ifstream file(in / sheet, std::ios::binary);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const std::string format = Ending(output);
        const std::string kind = format == ".mp3"                        ? "MP3"
                                 : format == ".aiff" || format == ".aif" ? "AIFF"
                                                                         : "WAVE";
        std::string changed;
        int fileLines = 0;
        for (size_t start = 0, end = 0; start < text.size(); start = end) {
            end = std::min(text.find('\n', start), text.size() - 1) + 1;
            std::string line = text.substr(start, end - start);
            const size_t word = std::min(line.find_first_not_of(" \t\xEF\xBB\xBF"), line.size());
            if (Lower(line.substr(word, 5)) == "file ") {
                const size_t last = line.find_last_not_of(" \t\r\n");
                line = line.substr(0, word) +
                       fmt::format("FILE \"{}\" {}", fs::path(output).filename().string(), kind) +
                       line.substr(last + 1);
                ++fileLines;
            }
            changed += line;
        }
        if (!file || fileLines != 1) return std::nullopt;
        return changed;
    }

    void NoteLeftOut(Album* album) {
        leftOut += static_cast<size_t>(std::count_if(
            sheets.begin(), sheets.end(), [](const std::string& sheet) { return !sheet.empty(); }));
        if (leftOut == 1)
            album->notes.push_back("1 file of the folder is not audio and is left out");
        if (leftOut > 1)
            album->notes.push_back(
                fmt::format("{} files of the folder are not audio and are left out", leftOut));
        if (!others.empty())
            album->notes.push_back(
                fmt::format("not part of the album: {}", fmt::join(others, ", ")));
    }

    fs::path in, out;
    std::string ending;
    std::vector<Found> found;
    std::vector<std::string> sheets;  // "" for a sheet that belongs to a track
    std::vector<std::string> others;  // folders with audio that are not discs of the album
    size_t leftOut = 0;
    std::optional<std::string> untagged;
    std::map<std::string, std::vector<const Found*>> groups;
};

void CheckOutputs(const std::vector<Album>& albums) {
    std::map<std::string, const AlbumTrack*> outputs;
    for (const Album& album : albums)
        for (const AlbumTrack& track : album.tracks)
            if (const auto [place, isNew] = outputs.try_emplace(track.output, &track); !isNew)
                throw Failure("{} and {} would both be written to {}", place->second->input,
                              track.input, track.output);
}

}  // namespace

std::vector<Album> FindAlbums(const std::string& folder, const std::string& outFolder,
                              const std::string& format) {
    std::vector<Album> albums = Folder(folder, outFolder, format).Albums();
    CheckOutputs(albums);
    return albums;
}
