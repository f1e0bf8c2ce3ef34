// Draws PNG files with gnuplot: makes scripts in its language and runs them.
//
// A page is 1600 x 1200 pixels: a title, lines of small text below it, and panels placed by the
// caller in screen coordinates.
#pragma once
#include <string>
#include <vector>

// Colours that stay apart for every kind of colour vision (Okabe and Ito), and pale fills.
inline constexpr const char* kBlue = "#0072b2";
inline constexpr const char* kOrange = "#d55e00";
inline constexpr const char* kPaleBlue = "#a6d3ee";
inline constexpr const char* kPaleOrange = "#f7c79f";
inline constexpr const char* kInk = "#303030";
inline constexpr const char* kGrey = "#808080";  // the zero line and the frame

// Returns the text as a string constant of gnuplot's language, on one line. No character in it acts
// as a command or as markup. Bytes that are not UTF-8 become question marks, and an apostrophe at
// the beginning becomes the typographic one.
std::string GnuplotText(const std::string& text);

// Returns a data block, which plot commands refer to by its name. The name starts with '$'. All
// columns have the same length. A curve leaves out values that are not finite.
std::string GnuplotData(const std::string& name, const std::vector<std::vector<double>>& columns);

// An entry of the page's key. `style` is in gnuplot's language, such as "lines linewidth 2".
struct GnuplotKey {
    const char *style, *colour, *title;
};

// Opens the page. A long title is cut, and long lines are wrapped. The key stands at the right of
// the title.
std::string GnuplotPage(const std::string& title, const std::vector<std::string>& lines,
                        const std::vector<GnuplotKey>& key);

// The edges of a panel's plot as fractions of the page, from the lower left corner.
struct GnuplotPlace {
    double left, right, bottom, top;
};

// Starts a panel with its margins, a heading, a line of small text below the heading, and a grid.
// The caller then adds the axes and the plot command.
std::string GnuplotPanel(const std::string& heading, const GnuplotPlace& place,
                         const std::string& line = "");

// Writes a note into the middle of a panel, for example why it is empty.
std::string GnuplotNote(const std::string& text);

// Adds a logarithmic x axis from 20 Hz to 20 kHz.
std::string GnuplotFrequencyAxis();

// Marks the frequencies at which the enhancer's three bands meet, on a logarithmic frequency axis.
std::string GnuplotBandSplits();
// Explains the marks in a panel's heading.
inline constexpr const char* kBandSplitsText =
    "dashed: the enhancer's bands meet, out of step, and cancel";

// A y axis whose ends are multiples of `step`. It contains all values, and the range from
// `alwaysLow` to `alwaysHigh` even without values.
struct GnuplotAxis {
    std::string label;
    double step;  // doubled until at most twelve steps are shown
    double alwaysLow, alwaysHigh;
    double reach = 1000;  // the largest distance from the top to the bottom
    double outliers = 0;  // the fraction of the lowest values that may lie below the axis
};
std::string GnuplotValueAxis(const GnuplotAxis& axis, std::vector<double> values);

// The file that a picture is drawn to. It is created or overwritten. If drawing fails, an
// incomplete file is left, so `path` should be a temporary name. `name` is the picture's final
// name, which messages give.
struct PngFile {
    std::string path, name;
};

// Runs the script and writes the drawing to the file. Throws Failure.
void RunGnuplot(const std::string& script, const PngFile& png);
