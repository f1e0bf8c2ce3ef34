// Replays the histories of histories.h on any build of the library, or on any other implementation
// of it.
//
//   histories LIBRARY DIGESTS              compares with a file of digests, a line for each history
//   histories LIBRARY                      prints such a file
//   histories LIBRARY calls NUMBER         prints every call of a history and the digest after it
//   histories LIBRARY OTHER FIRST COUNT    compares two libraries sample by sample
//
// If the other library is on another machine, the third form finds the first call that differs:
// compare both lists. The exit status is 1 if a history differs, and 2 if there is nothing to
// compare.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "client/history_player.h"
#include "client/library_file.h"
#include "client/stderr_silencer.h"
#include "tests/later_loader.h"

namespace {

std::unique_ptr<HistoryPlayer> NewPlayer(const audio_effect_library_t& library) {
    auto player = std::make_unique<HistoryPlayer>(library);
    if (!player->HasInstance()) std::abort();
    return player;
}

void PrintCall(const HistoryCall& call) {
    constexpr const char* kNames[] = {"configure", "command", "set", "process"};
    std::printf("%s %" PRId32 " %" PRId32 " %" PRId32, kNames[call.kind], call.first,
                call.values[0], call.values[1]);
}

// Plays one history and returns its digest. With `print`, prints a line for each call.
uint64_t Play(const audio_effect_library_t& library, uint32_t number, bool print) {
    const auto history = std::make_unique<History>(number);
    const auto player = NewPlayer(library);
    while (const HistoryCall* const call = history->Next()) {
        history->Answer(player->Play(*call, history->Input(), history->Channels()), player->out);
        if (!print) continue;
        PrintCall(*call);
        std::printf(" %016" PRIx64 "\n", history->Digest());
    }
    return history->Digest();
}

// Plays one history on two libraries. Returns false at the first difference, and prints its call
// and sample.
bool Agree(const audio_effect_library_t& library, const audio_effect_library_t& other,
           uint32_t number, uint64_t* frames) {
    const auto history = std::make_unique<History>(number);
    const auto one = NewPlayer(library), two = NewPlayer(other);
    for (uint32_t calls = 0; const HistoryCall* const call = history->Next(); ++calls) {
        const int32_t status = one->Play(*call, history->Input(), history->Channels());
        const int32_t otherStatus = two->Play(*call, history->Input(), history->Channels());
        size_t sample = 0, count = 0;
        if (call->kind == HistoryCall::kProcess && status == 0)
            count = static_cast<size_t>(call->first) * history->Channels();
        while (sample < count && one->out[sample] == two->out[sample]) ++sample;
        history->Answer(status, one->out);
        if (status == otherStatus && sample == count) continue;
        std::printf("history %" PRIu32 " (%s) differs in call %" PRIu32 ", ", number,
                    history->Theme(), calls);
        PrintCall(*call);
        std::printf(": status %" PRId32 " and %" PRId32, status, otherStatus);
        if (sample < count)
            std::printf(", sample %zu is %d and %d", sample, one->out[sample], two->out[sample]);
        std::printf("\n");
        return false;
    }
    *frames += history->Frames();
    return true;
}

int Compare(const audio_effect_library_t& library, const std::string& path) {
    std::FILE* const file = std::fopen(path.c_str(), "r");
    if (file == nullptr) {
        std::fprintf(stderr, "histories: cannot read %s\n", path.c_str());
        return 2;
    }
    uint32_t number = 0, different = 0;
    for (uint64_t wanted = 0; std::fscanf(file, "%" SCNx64, &wanted) == 1; ++number) {
        if (Play(library, number, false) == wanted) continue;
        ++different;
        std::printf("history %" PRIu32 " (%s) differs\n", number, History(number).Theme());
    }
    std::fclose(file);
    if (number != kRecordedHistories) {
        std::fprintf(stderr, "histories: %s has %" PRIu32 " digests instead of %" PRIu32 "\n",
                     path.c_str(), number, kRecordedHistories);
        return 2;
    }
    std::printf("%" PRIu32 " of %" PRIu32 " histories differ\n", different, number);
    return different == 0 ? 0 : 1;
}

// A library of interface 2.0 or 3.0.
class AnyLibrary {
public:
    explicit AnyLibrary(const std::string& path) : file(path), later(path) {
        if (Record() == nullptr)
            std::fprintf(stderr, "histories: %s; %s\n", file.Fault().c_str(),
                         later.Fault().c_str());
    }
    const audio_effect_library_t* Record() const {
        return file.Record() != nullptr ? file.Record() : later.ForTests();
    }

private:
    const LibraryFile file;
    const LaterLibrary later;
};

uint32_t NumberOf(const char* text) {
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    const bool calls = words.size() == 3 && words[1] == "calls";
    if (words.empty() || words.size() > 4 || (words.size() == 3 && !calls)) {
        std::fputs("usage: histories LIBRARY [DIGESTS | calls NUMBER | OTHER FIRST COUNT]\n",
                   stderr);
        return 2;
    }
    const AnyLibrary file(words[0]);
    const audio_effect_library_t* const library = file.Record();
    if (library == nullptr) return 2;
    if (words.size() == 4) {
        const AnyLibrary otherFile(words[1]);
        const audio_effect_library_t* const other = otherFile.Record();
        if (other == nullptr) return 2;
        const StderrSilencer muted;
        const uint32_t from = NumberOf(argv[3]), count = NumberOf(argv[4]);
        uint64_t frames = 0;
        uint32_t different = 0;
        for (uint32_t number = from; number < from + count; ++number)
            if (!Agree(*library, *other, number, &frames)) ++different;
        std::printf("%" PRIu32 " of %" PRIu32 " histories differ, %" PRIu64 " frames agree\n",
                    different, count, frames);
        return different == 0 ? 0 : 1;
    }
    const StderrSilencer muted;
    if (words.size() == 2) return Compare(*library, words[1]);
    if (calls) {
        Play(*library, NumberOf(argv[3]), true);
        return 0;
    }
    for (uint32_t number = 0; number < kRecordedHistories; ++number)
        std::printf("%016" PRIx64 "\n", Play(*library, number, false));
    return 0;
}
