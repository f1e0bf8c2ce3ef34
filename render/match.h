// Finds the output gain that gives a piece a wanted loudness.
#pragma once
#include <functional>
#include <optional>

#include "render/chain_run.h"

struct MatchedGain {
    double gain;         // a value that can be sent, within the table's range
    double reachedLufs;  // the loudness with this gain
};

// loudnessOf: returns the result's integrated loudness with an output gain. It must be finite, and
// must not fall as the gain rises. It is called up to twelve times. Where the limiters work, the
// loudness rises by less than the gain. Returns the gain that comes nearest, of equals the lower
// one.
MatchedGain MatchGain(double startGain, double wantedLufs,
                      const std::function<double(double gain)>& loudnessOf);

// Finds the gain with which all runs together have the loudness of job.match. Plays the runs as
// often as that takes. Returns nothing if no loudness can be measured.
std::optional<Match> MatchPiece(const RenderJob& job, const Runs& runs,
                                const EffectLibrary& library);
