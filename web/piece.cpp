// The module's exports for a whole piece, which gets the same samples as in the renderer.
#include "client/controls.h"
#include "client/piece_stream.h"
#include "host/entry_points.h"
#include "web/export.h"

namespace {

constexpr uint32_t kBufferFrames = 1024;

struct Piece {
    Settings settings;
    std::unique_ptr<PieceStream> stream;
    std::vector<int16_t> out;
};

}  // namespace

ORVANE_EXPORT(piece_create) Piece* PieceCreate() {
    return new (std::nothrow) Piece;
}
ORVANE_EXPORT(piece_release) void PieceRelease(Piece* piece) {
    delete piece;
}
// Sets a value before the piece starts. `control` is a place in the list of controls; `value` is in
// the units of the table.
ORVANE_EXPORT(piece_set) void PieceSet(Piece* piece, uint32_t control, double value) {
    SetValue(&piece->settings, kControls[control], value);
}
// Starts the piece. Returns whether the library accepted the format and all values.
ORVANE_EXPORT(piece_start) bool PieceStart(Piece* piece, uint32_t rateHz, uint32_t channels) {
    piece->stream = std::make_unique<PieceStream>(
        AELI, piece->settings, StreamFormat{rateHz, channels, kBufferFrames}, Alignment{});
    return piece->stream->Refused() == nullptr;
}
// Processes interleaved samples. Returns how many samples came out. They are at piece_out until the
// next call.
ORVANE_EXPORT(piece_process)
uint32_t PieceProcess(Piece* piece, const int16_t* in, uint32_t samples) {
    piece->out.clear();
    piece->stream->Process({in, samples}, &piece->out);
    return piece->out.size();
}
ORVANE_EXPORT(piece_finish) uint32_t PieceFinish(Piece* piece) {
    piece->out.clear();
    piece->stream->Finish(&piece->out);
    return piece->out.size();
}
ORVANE_EXPORT(piece_out) const int16_t* PieceOut(const Piece* piece) {
    return piece->out.data();
}
