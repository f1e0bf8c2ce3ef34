#include "render/ceiling.h"

#include <fmt/format.h>

#include <cmath>

#include "render/failure.h"

namespace {

constexpr uint32_t kMostOutputs = 8;
// The second output aims this far below the ceiling, and each later one further by kFurtherDb. The
// reason is that a lossy encoder gives other peaks at another gain.
constexpr double kMarginDb = 0.02, kFurtherDb = 0.1;

}  // namespace

double Ceiling::Gain() const {
    return std::pow(10, gainDb / 20);
}

bool Ceiling::NeedsAnother(double peakDb) {
    if (!wantedDb) return false;
    if (std::isnan(peakDb)) throw Failure("--ceiling: the true peak cannot be measured");
    reachedDb = peakDb;
    ++outputs;
    if (peakDb <= *wantedDb || outputs == kMostOutputs) return false;
    gainDb -= peakDb - *wantedDb + kMarginDb + kFurtherDb * (outputs - 1);
    return true;
}

void Ceiling::AddTo(Report* report) const {
    if (!wantedDb) {
        if (report->decodedPeakDb.value_or(0) > 0)
            report->notes.push_back(fmt::format(
                "the decoded output exceeds full scale by {:.1f} dB, so players may clip "
                "it; --ceiling lowers it",
                *report->decodedPeakDb));
        return;
    }
    report->ceiling = {*wantedDb, gainDb, reachedDb, outputs};
    if (reachedDb > *wantedDb)
        report->warnings.push_back(fmt::format(
            "the true peak of {} is {:.2f} dB, above the ceiling of {:.2f} dB, after {} tries",
            report->output, reachedDb, *wantedDb, outputs));
}
