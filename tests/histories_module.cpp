// Exports the histories of histories.h as a WebAssembly module. A script plays them through the
// library's module. Addresses are bytes of this module's memory.
#include <new>

#include "client/histories.h"

#define HISTORY_EXPORT(name) extern "C" __attribute__((export_name("history_" #name)))

namespace {
alignas(History) unsigned char room[sizeof(History)];
History* history = nullptr;
}  // namespace

HISTORY_EXPORT(recorded) uint32_t Recorded() {
    return kRecordedHistories;
}
HISTORY_EXPORT(most_frames) uint32_t MostFrames() {
    return History::kMostFrames;
}
HISTORY_EXPORT(begin) void Begin(uint32_t number) {
    history = new (room) History(number);
}
HISTORY_EXPORT(theme) const char* Theme() {
    return history->Theme();
}
// Returns the address of four int32: the kind, first and both values of a HistoryCall. Returns 0 at
// the end.
HISTORY_EXPORT(next) const HistoryCall* Next() {
    return history->Next();
}
HISTORY_EXPORT(channels) uint32_t Channels() {
    return history->Channels();
}
// Returns the address of a buffer's input. The script writes the output to the same place.
HISTORY_EXPORT(input) const int16_t* Input() {
    return history->Input();
}
HISTORY_EXPORT(answer) void Answer(int32_t status) {
    history->Answer(status, history->Input());
}
HISTORY_EXPORT(digest) uint64_t Digest() {
    return history->Digest();
}
