// Draws PNG files with gnuplot: pieces of its language, and running it.
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

// The text as a string constant of the language: one line, nothing in it has a meaning, bytes that
// are not UTF-8 become question marks, an apostrophe in front the typographic one.
std::string GnuplotText(const std::string& text);

// A block of rows that plots read under its name, which starts with '$'. All columns have the same
// length; values that are not finite are left out of a curve.
std::string GnuplotData(const std::string& name, const std::vector<std::vector<double>>& columns);

// An entry of the page's key: a style of the language, such as "lines linewidth 2".
struct GnuplotKey {
    const char *style, *colour, *title;
};

// Opens the page. A long title is cut, long lines are wrapped; the key stands at the right of the
// title.
std::string GnuplotPage(const std::string& title, const std::vector<std::string>& lines,
                        const std::vector<GnuplotKey>& key);

// The edges of a panel's plot, in parts of the page from the lower left corner.
struct GnuplotPlace {
    double left, right, bottom, top;
};

// Starts a panel: margins, heading, grid. The axes are the caller's, the plot command follows.
std::string GnuplotPanel(const std::string& heading, const GnuplotPlace& place);

// A logarithmic x axis from 20 Hz to 20 kHz.
std::string GnuplotFrequencyAxis();

// A y axis from and to multiples of a step, around its values and around what it always shows.
struct GnuplotAxis {
    std::string label;
    double step;  // doubled until no more than twelve are shown
    double alwaysLow, alwaysHigh;
    double reach = 1000;  // most that is shown below the top
    double outliers = 0;  // part of the values, the lowest, that need not be shown
};
std::string GnuplotValueAxis(const GnuplotAxis& axis, std::vector<double> values);

// Runs the script and writes what it draws to pngPath, which is created or overwritten. On failure
// returns false, puts a line without the path into *error and leaves an incomplete file behind:
// give it a temporary name.
bool RunGnuplot(const std::string& script, const std::string& pngPath, std::string* error);
