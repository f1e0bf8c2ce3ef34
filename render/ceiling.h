// Finds the gain at which the true peak of an output stays below a ceiling.
//
// A lossy encoder adds peaks, which are known only when its file has been decoded. So the output is
// made and measured, and made again with a lower gain until its peak stays below the ceiling:
//
//   Ceiling ceiling(db);
//   do make the output with ceiling.Gain() and measure it;
//   while (ceiling.NeedsAnother(peakDb));
//
// The tracks of an album must keep their relative levels. So they share one Ceiling, and the peak
// is the largest of all tracks.
#pragma once
#include <cstdint>
#include <optional>

#include "render/report.h"

class Ceiling {
public:
    // `db` is the ceiling in dBTP, at most 0, or nothing if there is no ceiling.
    explicit Ceiling(std::optional<double> db) : wantedDb(db) {}

    // Returns the linear gain for the next output. It is 1 for the first output and at most 1
    // later.
    double Gain() const;

    // Returns true if the output has to be made again with the new Gain(). `peakDb` is the true
    // peak of the output that was made with the present Gain(), in dB over full scale. It is minus
    // infinity for silence. After the eighth output it returns false, even if the peak is too high.
    // Throws Failure if there is a ceiling and the peak is NaN.
    bool NeedsAnother(double peakDb);

    // Reports the ceiling, the gain and how many outputs were made. Adds a warning if the last one
    // is too loud. Without a ceiling, adds a note if the decoded output exceeds full scale.
    void AddTo(Report* report) const;

private:
    std::optional<double> wantedDb;
    double gainDb = 0;
    double reachedDb = 0;
    uint32_t outputs = 0;
};
