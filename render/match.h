// The output gain that makes a piece as loud as it is wanted.
#pragma once
#include <functional>
#include <optional>

#include "render/chain_run.h"

struct MatchedGain {
    double gain;         // what can be sent, within the table's range
    double reachedLufs;  // with it
};

// loudnessOf: the result's integrated loudness with an output gain, which must not fall as the gain
// rises; finite. It is asked up to twelve times. The limiters bend it: it rises by less than the
// gain does where they work. Returns what comes nearest; of equals the lower gain.
MatchedGain MatchGain(double startGain, double wantedLufs,
                      const std::function<double(double gain)>& loudnessOf);

// Plays the runs as often as it takes to find the gain for job.match, with which all of them
// together are as loud as is wanted. Nothing where no loudness can be measured.
std::optional<Match> MatchPiece(const RenderJob& job, const Runs& runs,
                                const EffectLibrary& library);
