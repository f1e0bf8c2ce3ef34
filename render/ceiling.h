// How far an output has to be lowered so that its true peak stays below a ceiling.
//
// A lossy encoder adds peaks of its own, which are known only once its file is decoded. So the
// output is made, measured, and made anew with a lower gain until its peak stays below:
//
//   Ceiling ceiling(db);
//   do make the output with ceiling.Gain() and measure it;
//   while (ceiling.NeedsAnother(peakDb));
//
// Several files that have to keep their levels to one another, such as an album's, share one
// Ceiling; its peak is the largest of theirs.
#pragma once
#include <cstdint>
#include <optional>

#include "render/report.h"

class Ceiling {
public:
    // db: the ceiling in dBTP, at most 0; none if there is no ceiling.
    explicit Ceiling(std::optional<double> db) : wantedDb(db) {}

    // The linear gain for the output that is made next, at most 1. The first time it is 1.
    double Gain() const;

    // peakDb: the true peak of the output that was made with Gain(), in dB over full scale; minus
    // infinity for silence. Returns true if the output has to be made again, with what Gain() then
    // is. It is asked for at most eight outputs; the last one stands although it may be too loud.
    // Throws Failure if there is a ceiling and the peak is NaN.
    bool NeedsAnother(double peakDb);

    // Tells the ceiling, the gain and the outputs it took, and warns if the last one was too loud.
    // Without a ceiling, notes that the decoded output exceeds full scale, if it does.
    void AddTo(Report* report) const;

private:
    std::optional<double> wantedDb;
    double gainDb = 0;
    double reachedDb = 0;
    uint32_t outputs = 0;
};
