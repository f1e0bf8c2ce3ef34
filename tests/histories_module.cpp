// The histories of histories.h as a WebAssembly module, for a script that plays them through
// another one. Addresses are bytes of this module's memory.
#include <new>

#include "tests/histories.h"

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
// The address of four int32: kind, first and both values of a HistoryCall; 0 at the end.
HISTORY_EXPORT(next) const HistoryCall* Next() {
    return history->Next();
}
HISTORY_EXPORT(channels) uint32_t Channels() {
    return history->Channels();
}
// The input of a buffer. The output goes to the same place.
HISTORY_EXPORT(input) const int16_t* Input() {
    return history->Input();
}
HISTORY_EXPORT(answer) void Answer(int32_t status) {
    history->Answer(status, history->Input());
}
HISTORY_EXPORT(digest) uint64_t Digest() {
    return history->Digest();
}
