// Where the enhancer's three bands meet, on a logarithmic frequency axis.
#pragma once
#include <string>

#include "render/pictures/gnuplot.h"

inline constexpr const char* kBandSplitsText =
    "dashed: the enhancer's bands meet, out of step, and cancel";

inline std::string BandSplitMarks() {
    std::string marks;
    for (const char* hz : {"150", "1800"})
        marks += std::string("set arrow from first ") + hz + ", graph 0 to first " + hz +
                 ", graph 1 nohead dashtype 2 linecolor rgb '" + kGrey + "'\n";
    return marks;
}
