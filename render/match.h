// Finds the output gain that gives a piece a wanted loudness.
#pragma once
#include <functional>
#include <optional>

#include "render/chain_run.h"

struct MatchedGain {
    double gain;         // a value that can be sent, within the table's range
    double reachedLufs;  // the loudness with this gain
};

// Finds the gain whose loudness comes nearest to the wanted one. loudnessOf(gain) returns the
// integrated loudness of the output with an output gain. It must be finite, and must not fall as
// the gain rises. While the limiters work, it rises by less than the gain. It is called up to
// twelve times. If several of these gains come equally near, the first of them is returned.
MatchedGain MatchGain(double startGain, double wantedLufs,
                      const std::function<double(double gain)>& loudnessOf);

// Finds the gain with which all runs together have the loudness of job.match. Plays the runs
// several times. Returns nothing if no loudness can be measured.
std::optional<Match> MatchPiece(const RenderJob& job, const Runs& runs,
                                const EffectLibrary& library);
