#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <span>
#include <tuple>
#include <utility>

#include "render/album_plan.h"
#include "render/audio/background_writer.h"
#include "render/audio/output_file.h"
#include "render/audio/whole_write.h"
#include "render/ceiling.h"
#include "render/chain_run.h"
#include "render/commands.h"
#include "render/common_options.h"
#include "render/failure.h"
#include "render/joined_reader.h"
#include "render/match.h"

namespace fs = std::filesystem;

namespace {

using Tracks = std::span<const AlbumTrack>;

// Collects the tag warnings of an album's tracks. Tracks with the same warning share one line.
class TagWarnings {
public:
    void Add(const std::string& output, const AudioWriter& writer, const AudioTags& tags,
             bool getsGains) {
        Report report{};
        NoteTags("", writer, tags, getsGains ? std::optional(Gains{{}, Loudness{}}) : std::nullopt,
                 &report);
        for (const std::string& text : report.warnings) {
            auto& [first, count] = said[text];
            if (count++ == 0) first = output;
        }
    }
    void AddTo(Report* report) const {
        for (const auto& [text, tracks] : said)
            report->warnings.push_back(
                tracks.first + text +
                (tracks.second > 1 ? fmt::format("; the same goes for {} more", tracks.second - 1)
                                   : ""));
    }

private:
    std::map<std::string, std::pair<std::string, size_t>> said;  // first output, count
};

// A track under its temporary name.
struct ClosedTrack {
    std::string path, output;
    bool getsGains;
};

// Cuts the result of a run where its tracks end, and writes each part to its own file.
class TrackCutter final : public AudioWriter {
public:
    // Everything must outlive the cutter.
    TrackCutter(const RenderJob& renderJob, Tracks runTracks, uint32_t rateHz, OutputSet* outputSet,
                TagWarnings* tagWarnings, std::vector<ClosedTrack>* closedTracks,
                StreamMeter* albumMeter, Report* albumReport)
        : job(renderJob),
          tracks(runTracks),
          outputRateHz(rateHz),
          set(outputSet),
          warnings(tagWarnings),
          closed(closedTracks),
          after(albumMeter),
          report(albumReport) {}

    // Begins the next track, whose source has been opened. Its samples come later, because the
    // chain delays them.
    void Begin(const AudioReader& file) {
        waiting.push_back({tracks[begun++], file.Tags(), std::nullopt});
    }
    // Ends the track, whose source has been read to its end. `frames` is the length of the run so
    // far at the run's rate.
    void End(uint64_t frames) {
        const AlbumTrack& track = waiting.back().track;
        report->tracks.push_back(
            {track.name, track.output, track.rateHz, track.channels, frames - framesEnded});
        framesEnded = frames;
        waiting.back().end = AtRate(frames, track.rateHz, outputRateHz) * track.channels;
    }

    void Write(std::span<const int16_t> samples) override {
        while (!samples.empty() && !waiting.empty()) {
            size_t count = samples.size();
            if (const auto end = waiting.front().end)
                count = static_cast<size_t>(std::min<uint64_t>(count, *end - written));
            if (count > 0) Writer().Write(samples.first(count));
            after->Add(samples.first(count));
            written += count;
            samples = samples.subspan(count);
            if (!samples.empty()) CloseTrack();
        }
    }

    void Close() override {
        while (!waiting.empty()) CloseTrack();
    }
    std::string ClosedPath() const override { return ""; }
    void Commit() override { Close(); }
    std::vector<std::string> NotKept() const override { return {}; }

private:
    struct Waiting {
        const AlbumTrack& track;
        AudioTags tags;
        // Where the track ends: the samples of the run's output before the next track. Unset until
        // End.
        std::optional<uint64_t> end;
    };

    AudioWriter& Writer() {
        const Waiting& next = waiting.front();
        if (writer == nullptr)
            writer = std::make_unique<BackgroundWriter>(OpenAudioWriter(
                next.track.output, job.overwrite,
                {.rateHz = outputRateHz,
                 .channels = next.track.channels,
                 .frames = next.track.frames,
                 .times = job.keepTimes ? std::optional(next.track.times) : std::nullopt,
                 .quality = job.quality},
                next.tags, set));
        return *writer;
    }

    void CloseTrack() {
        Writer().Close();
        after->EndPart();
        const auto& [track, tags, end] = waiting.front();
        const bool getsGains = GetsGains(job, track.output, tags);
        closed->push_back({writer->ClosedPath(), track.output, getsGains});
        if (job.metering != Metering::kNothing && OutputFormat(track.output).IsLossy() &&
            end != lastEnd)
            AddDecodedPeak(writer->ClosedPath(), report);
        lastEnd = end.value_or(0);
        writer->Commit();
        warnings->Add(track.output, *writer, tags, getsGains);
        writer.reset();
        waiting.pop_front();
    }

    const RenderJob& job;
    Tracks tracks;
    uint32_t outputRateHz;
    OutputSet* set;
    TagWarnings* warnings;
    std::vector<ClosedTrack>* closed;
    StreamMeter* after;  // measures each track as a part
    Report* report;
    size_t begun = 0;
    uint64_t framesEnded = 0;     // the length of the ended tracks at the run's rate
    uint64_t written = 0;         // samples
    uint64_t lastEnd = 0;         // the end of the track that was closed last
    std::deque<Waiting> waiting;  // tracks that are not closed; the first one is being written
    std::unique_ptr<AudioWriter> writer;
};

std::unique_ptr<JoinedReader> Join(Tracks tracks, JoinedReader::Begins begins = nullptr,
                                   JoinedReader::Ends ends = nullptr) {
    JoinedFormat format{tracks.front().rateHz, tracks.front().channels, true, 0};
    std::vector<std::string> paths;
    for (const AlbumTrack& track : tracks) {
        paths.push_back(track.input);
        format.sixteenBit = format.sixteenBit && track.sixteenBit;
        if (!track.frames) format.frames.reset();
        if (format.frames) *format.frames += *track.frames;
    }
    return std::make_unique<JoinedReader>(std::move(paths), format, std::move(begins),
                                          std::move(ends));
}

// Returns the album's runs. A run consists of neighbouring tracks with the same rate and channel
// count whose outputs have the same rate, too.
std::vector<Tracks> RunsOf(const Album& album) {
    std::vector<Tracks> runs;
    const auto kind = [](const AlbumTrack& track) {
        return std::tuple(track.rateHz, track.channels, OutputRateHz(track.output, track.rateHz));
    };
    for (auto first = album.tracks.begin(), end = first; first != album.tracks.end(); first = end) {
        end = std::find_if(first, album.tracks.end(),
                           [&](const AlbumTrack& track) { return kind(track) != kind(*first); });
        runs.emplace_back(first, end);
    }
    return runs;
}

class AlbumRendering {
public:
    AlbumRendering(const RenderJob& renderJob, const Album& wantedAlbum,
                   const EffectLibrary& effectLibrary)
        : job(renderJob), album(wantedAlbum), library(effectLibrary), runs(RunsOf(album)) {
        for (const AlbumTrack& track : album.tracks)
            OutputFile::CheckName(track.output, job.overwrite);
        for (const CueSheet& sheet : album.sheets)
            OutputFile::CheckName(sheet.output, job.overwrite);
    }

    Report Run() {
        std::optional<Match> match;
        if (job.match) {
            Runs openers;
            for (const Tracks& tracks : runs)
                openers.emplace_back([tracks] { return Join(tracks); });
            match = MatchPiece(job, openers, library);
        }
        const Report started = Start(match);
        Ceiling ceiling(job.ceilingDb);
        do {
            report = started;
            Make(ceiling.Gain());
        } while (ceiling.NeedsAnother(PeakDb()));
        for (size_t i = 0; i < gains.size(); ++i)
            if (closed[i].getsGains)
                WriteGains(closed[i].path, closed[i].output, {gains[i], report.after});
        set->Commit();
        ceiling.AddTo(&report);
        warnings.AddTo(&report);
        if (job.match) NoteMatch(match, &report);
        return report;
    }

private:
    // Finds the settings of each run. All runs get the lowest output gain that one of them needs.
    Report Start(const std::optional<Match>& match) {
        for (const Tracks& tracks : runs) {
            RenderJob jobOfRun = job;
            jobOfRun.input = tracks.front().input;
            jobOfRun.output = tracks.front().output;
            starts.push_back(StartReport(jobOfRun, match, *Join(tracks)));
        }
        double gain = starts.front().settings.Get(PARAM_OUTPUT_GAIN);
        for (const Report& start : starts)
            gain = std::min(gain, start.settings.Get(PARAM_OUTPUT_GAIN));
        for (Report& start : starts) start.settings.Set(PARAM_OUTPUT_GAIN, gain);
        Report started = starts.front();
        started.input = job.input;
        started.output = job.output;
        started.album = album.title;
        for (size_t i = 1; i < runs.size(); ++i) {
            started.notes.push_back(
                fmt::format("the chain starts anew at {}, which has another format: {} Hz, {}",
                            runs[i].front().name, starts[i].rateHz,
                            starts[i].channels == 1 ? "mono" : "stereo"));
            started.notes.insert(started.notes.end(), starts[i].notes.begin(),
                                 starts[i].notes.end());
        }
        started.notes.insert(started.notes.end(), album.notes.begin(), album.notes.end());
        return started;
    }

    // Writes all files under temporary names. `gain` is that of PcmSink.
    void Make(double gain) {
        set.emplace();
        warnings = {};
        for (const AlbumTrack& track : album.tracks) MakeFolderOf(track.output);
        closed.clear();
        const bool tags = job.metering != Metering::kNothing && job.gainTags != GainTags::kNever;
        StreamMeter before(job.metering), after(tags ? Metering::kParts : job.metering);
        for (size_t i = 0; i < runs.size(); ++i) Play(runs[i], starts[i], gain, &before, &after);
        report.before = before.Finish().loudness;
        const Measured measured = after.Finish();
        report.after = measured.loudness;
        gains = measured.parts;  // none if memory ran out
        for (const CueSheet& sheet : album.sheets) WriteSheet(sheet);
    }

    // Returns the true peak of the album in dB. It is the largest of the decoded lossy outputs, and
    // of all samples if at least one output is lossless.
    double PeakDb() const {
        const bool lossy = std::all_of(
            album.tracks.begin(), album.tracks.end(),
            [](const AlbumTrack& track) { return OutputFormat(track.output).IsLossy(); });
        const double decodedDb = report.decodedPeakDb.value_or(-INFINITY);
        return lossy || decodedDb > report.after.truePeakDb ? decodedDb : report.after.truePeakDb;
    }

    void Play(Tracks tracks, const Report& start, double gain, StreamMeter* before,
              StreamMeter* after) {
        // The cutter measures the output, because it knows where the tracks end.
        StreamMeter noMeter(Metering::kNothing);
        after->StartRun(tracks.front().channels, start.outputRateHz);
        TrackCutter cutter(job, tracks, start.outputRateHz, &*set, &warnings, &closed, after,
                           &report);
        const auto reader = Join(
            tracks, [&cutter](const AudioReader& file) { cutter.Begin(file); },
            [&cutter](uint64_t frames) { cutter.End(frames); });
        ChainRun run(job, library, start.settings, *reader, *before);
        run.Play(cutter, start.outputRateHz, noMeter, gain);
        run.AddTo(&report);
        if (!report.damage.empty())
            throw Failure("{}; nothing of the album is written",
                          DamageText(job.input, report.damage));
        cutter.Commit();
    }

    void MakeFolderOf(const std::string& path) {
        if (const fs::path parent = fs::path(path).parent_path(); !parent.empty())
            set->MakeFolder(parent.string());
    }

    void WriteSheet(const CueSheet& sheet) {
        MakeFolderOf(sheet.output);
        OutputFile file(sheet.output, job.overwrite, &*set);
        if (job.keepTimes) file.SetTimes(sheet.times);
        if (const int error = WriteAll(file.Descriptor(), sheet.text.data(), sheet.text.size()))
            throw Failure("{} cannot be written: {}", sheet.output, std::strerror(error));
        file.Commit();
    }

    const RenderJob& job;
    const Album& album;
    const EffectLibrary& library;
    std::vector<Tracks> runs;
    std::vector<Report> starts;  // what is known of each run before it is played
    Report report{};
    TagWarnings warnings;
    std::vector<ClosedTrack> closed;
    std::vector<Loudness> gains;  // of the closed tracks
    std::optional<OutputSet> set;
};

// Plays the tracks of a folder through one instance of the chain, so that the transitions between
// tracks stay seamless.
class AlbumCommand final : public Command {
public:
    explicit AlbumCommand(Options& program);
    void Run() override;

private:
    void RunAlbum(const Album& album, const EffectLibrary& library);

    RenderOptions render;
    RenderJob job;
    std::string format;  // the ending with its dot; "" if none was given
};

AlbumCommand::AlbumCommand(Options& program)
    : Command(program, "album",
              "process the tracks of a folder as one piece, with seamless joints") {
    options
        .Add("DIR", &job.input,
             "folder of the tracks. Folders CD1, CD2 ... in it belong to the album. Tags define "
             "the order of the tracks; without them, the names do. Different album tags are "
             "different albums")
        .Required();
    options
        .Add("OUTDIR", &job.output,
             "folder for the outputs. They appear together, when all of them are complete")
        .Required();
    options
        .Add("--format", &format,
             "ending of all outputs, such as flac. Without it, each track keeps its own ending, or "
             "gets .flac if its format can't be written")
        .Type("ENDING");
    render.AddTo(options, &job);
}

void AlbumCommand::Run() {
    render.Fill(&job);
    if (!format.empty() && format.front() != '.') format.insert(0, ".");
    if (!format.empty()) const OutputFormat known("track" + format);
    std::error_code ignored;
    if (!job.overwrite && fs::equivalent(job.input, job.output, ignored))
        throw UsageError("DIR and OUTDIR are the same folder (-f renders in place)");
    if (fs::exists(job.output, ignored) && !fs::is_directory(job.output, ignored))
        throw Failure("{} is not a folder", job.output);
    render.common.settings.CheckSave({job.input, job.output}, job.overwrite);
    const std::vector<Album> albums = FindAlbums(job.input, job.output, format);
    if (albums.size() > 1 && render.common.settings.Saves())
        throw UsageError("--save takes the settings of one album, and {} holds {}", job.input,
                         albums.size());
    const EffectLibrary library = render.common.library.Open();
    for (const Album& album : albums) RunAlbum(album, library);
}

void AlbumCommand::RunAlbum(const Album& album, const EffectLibrary& library) {
    std::vector<std::string> outputs;
    for (const AlbumTrack& track : album.tracks) outputs.push_back(track.output);
    if (render.Skips(outputs)) return;
    render.CheckQuality(outputs);
    Report report = AlbumRendering(job, album, library).Run();
    render.Finish(&report);
}

}  // namespace

std::unique_ptr<Command> MakeAlbumCommand(Options& program) {
    return std::make_unique<AlbumCommand>(program);
}
