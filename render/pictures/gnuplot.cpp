#include "render/pictures/gnuplot.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <string_view>

#include "render/failure.h"

extern char** environ;  // NOLINT(readability-redundant-declaration): not every libc declares it

namespace {

// The number of characters of small text that fit into a line of the page.
constexpr size_t kLineCharacters = 170;
// The most characters of a title, so that the key has room beside it.
constexpr size_t kTitleCharacters = 60;
constexpr double kMostSteps = 12;

// Returns the length in bytes of the UTF-8 character at `at`, or 0 if there is no valid one.
size_t CharacterBytes(const std::string& text, size_t at) {
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text.c_str()[i]); };
    const unsigned char lead = byte(at);
    if (lead < 0x80) return 1;
    const size_t bytes = lead >= 0xC2 && lead < 0xE0   ? 2
                         : lead >= 0xE0 && lead < 0xF0 ? 3
                         : lead >= 0xF0 && lead < 0xF5 ? 4
                                                       : 0;
    for (size_t i = 1; i < bytes; ++i)  // stops at the terminating null
        if ((byte(at + i) & 0xC0) != 0x80) return 0;
    return bytes;
}

// Returns the text, shortened to at most `characters` characters. If characters are left out, the
// last one is an ellipsis.
std::string Shortened(const std::string& text, size_t characters) {
    size_t end = 0, last = 0;
    for (size_t i = 0; i < characters && end < text.size(); ++i) {
        last = end;
        end += std::max<size_t>(CharacterBytes(text, end), 1);
    }
    return end < text.size() ? text.substr(0, last) + "\u2026" : text;
}

std::vector<std::string> Wrap(const std::string& text) {
    std::vector<std::string> lines{""};
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        std::string& line = lines.back();
        if (!line.empty() && line.size() + 1 + word.size() > kLineCharacters)
            lines.push_back(word);
        else
            line += (line.empty() ? "" : " ") + word;
    }
    return lines;
}

struct CloseFile {
    void operator()(FILE* file) const { fclose(file); }
};
using File = std::unique_ptr<FILE, CloseFile>;

// Returns true if the file ends as a PNG file does. gnuplot doesn't notice that a disk is full, but
// then the end is missing.
bool IsWholePng(FILE* picture) {
    constexpr std::string_view kEnd("\0\0\0\0IEND\xAE\x42\x60\x82", 12);
    std::array<char, kEnd.size()> end{};
    return fseek(picture, -static_cast<long>(end.size()), SEEK_END) == 0 &&
           fread(end.data(), 1, end.size(), picture) == end.size() &&
           std::string_view(end.data(), end.size()) == kEnd;
}

// Runs gnuplot with these files as its standard input, output and error. Returns "", or what went
// wrong.
std::string Spawn(FILE* script, FILE* picture, FILE* messages) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fileno(script), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(picture), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fileno(messages), STDERR_FILENO);
    char name[] = "gnuplot", defaultSettings[] = "-d";
    char* const arguments[] = {name, defaultSettings, nullptr};
    pid_t child = 0;
    const int failure = posix_spawnp(&child, name, &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (failure == ENOENT) return "gnuplot is not installed";
    if (failure) return std::string("cannot run gnuplot: ") + std::strerror(failure);

    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (status == 0 && IsWholePng(picture)) return "";
    // gnuplot's message is its last line that is not empty.
    std::string message = status == 0 ? "the file is incomplete" : "gnuplot failed";
    rewind(messages);
    char line[512];
    while (fgets(line, sizeof line, messages)) {
        std::string text(line);
        text.erase(text.find_last_not_of(" \r\n") + 1);
        if (!text.empty()) message = "gnuplot failed: " + text;
    }
    return message;
}

}  // namespace

std::string GnuplotText(const std::string& text) {
    std::string quoted = "'";
    for (size_t at = 0; at < text.size();) {
        const size_t bytes = CharacterBytes(text, at);
        if (bytes == 0)
            quoted += '?';
        else if (bytes == 1 && static_cast<unsigned char>(text[at]) < ' ')
            quoted += ' ';
        else if (text[at] == '\'')
            quoted += at == 0 ? "\u2019" : "''";  // two at the beginning are an empty text
        else
            quoted += text.substr(at, bytes);
        at += std::max<size_t>(bytes, 1);
    }
    return quoted + "'";
}

std::string GnuplotData(const std::string& name, const std::vector<std::vector<double>>& columns) {
    std::ostringstream block;
    block.precision(8);
    block << name << " << EOD\n";
    for (size_t row = 0; row < columns.front().size(); ++row) {
        for (const std::vector<double>& column : columns) {
            if (std::isfinite(column[row]))
                block << column[row] << ' ';
            else
                block << "NaN ";
        }
        block << '\n';
    }
    block << "EOD\n";
    return block.str();
}

std::string GnuplotPage(const std::string& title, const std::vector<std::string>& lines,
                        const std::vector<GnuplotKey>& key) {
    std::ostringstream page;
    page << "set encoding utf8\n"
            "set terminal pngcairo size 1600,1200 font 'Sans,13' noenhanced linewidth 1.5 "
            "background '#ffffff'\n"
            "set multiplot\nunset border\nunset tics\n"
            "set key horizontal at screen 0.985,0.985 samplen 2 textcolor rgb '"
         << kInk << "'\nset label 1 " << GnuplotText(Shortened(title, kTitleCharacters))
         << " at screen 0.05,0.968 font 'Sans,20'\n";
    double y = 0.936;
    int tag = 2;
    for (const std::string& line : lines) {
        for (const std::string& part : Wrap(line)) {
            page << "set label " << tag++ << ' ' << GnuplotText(part) << " at screen 0.05," << y
                 << " textcolor rgb '" << kInk << "'\n";
            y -= 0.022;
        }
    }
    page << "plot [0:1][0:1]";  // this plot has no curves and shows only the labels and the key
    for (size_t i = 0; i < key.size(); ++i)
        page << (i > 0 ? "," : "") << " -1 with " << key[i].style << " linecolor rgb '"
             << key[i].colour << "' title " << GnuplotText(key[i].title);
    page << '\n';
    return page.str();
}

std::string GnuplotPanel(const std::string& heading, const GnuplotPlace& place,
                         const std::string& line) {
    std::ostringstream panel;
    panel << "reset\nset border 3 linecolor rgb '" << kGrey
          << "'\nset grid xtics ytics mxtics linetype 1 linecolor rgb '#e0e0e0', "
             "linetype 1 linecolor rgb '#f0f0f0'\nset tics nomirror scale 0.5 textcolor rgb '"
          << kInk << "'\nunset key\nset label 1 " << GnuplotText(heading) << " at graph 0,"
          << (line.empty() ? 1.06 : 1.095) << " font 'Sans,14'\n"
          << "set label 2 " << GnuplotText(line)
          << " at graph 0,1.04 font 'Sans,11' textcolor rgb '" << kInk << "'\n"
          << "set lmargin at screen " << place.left << "\nset rmargin at screen " << place.right
          << "\nset bmargin at screen " << place.bottom << "\nset tmargin at screen " << place.top
          << '\n';
    return panel.str();
}

std::string GnuplotNote(const std::string& text) {
    return "set label 3 " + GnuplotText(text) + " at graph 0.5,0.7 center front font 'Sans,14' " +
           "textcolor rgb '" + kInk + "'\n";
}

std::string GnuplotFrequencyAxis() {
    return "set logscale x\n"
           "set xrange [20:20000]\n"
           "set xtics ('20' 20, '50' 50, '100' 100, '200' 200, '500' 500, '1k' 1000, '2k' 2000, "
           "'5k' 5000, '10k' 10000, '20k' 20000, '' 30 1, '' 40 1, '' 60 1, '' 70 1, '' 80 1, "
           "'' 90 1, '' 300 1, '' 400 1, '' 600 1, '' 700 1, '' 800 1, '' 900 1, '' 3000 1, "
           "'' 4000 1, '' 6000 1, '' 7000 1, '' 8000 1, '' 9000 1)\n"
           "set xlabel 'Hz' offset 0,0.5\n";
}

std::string GnuplotBandSplits() {
    std::string marks;
    for (const char* hz : {"150", "1800"})
        marks += std::string("set arrow from first ") + hz + ", graph 0 to first " + hz +
                 ", graph 1 nohead dashtype 2 linecolor rgb '" + kGrey + "'\n";
    return marks;
}

std::string GnuplotValueAxis(const GnuplotAxis& axis, std::vector<double> values) {
    double low = axis.alwaysLow, high = axis.alwaysHigh, step = axis.step;
    std::erase_if(values, [](double value) { return !std::isfinite(value); });
    if (values.empty() && low == high) low -= axis.reach;
    if (!values.empty()) {
        std::sort(values.begin(), values.end());
        const auto skip = static_cast<size_t>(axis.outliers * static_cast<double>(values.size()));
        low = std::min(low, values[skip]);
        high = std::max(high, values.back());
    }
    low = std::max(low, high - axis.reach);
    while (std::ceil(high / step) - std::floor(low / step) > kMostSteps) step *= 2;
    std::ostringstream text;
    text << "set yrange [" << step * std::floor(low / step) << ':' << step * std::ceil(high / step)
         << "]\nset ytics " << step << "\nset ylabel " << GnuplotText(axis.label)
         << " offset 1,0\n";
    return text.str();
}

void RunGnuplot(const std::string& script, const PngFile& png) {
    const File picture(fopen(png.path.c_str(), "w+be"));
    if (!picture) throw Failure("{} cannot be drawn: {}", png.name, std::strerror(errno));
    const File input(tmpfile()), messages(tmpfile());
    if (!input || !messages || fputs(script.c_str(), input.get()) < 0 ||
        fseek(input.get(), 0, SEEK_SET) != 0)
        throw Failure("{} cannot be drawn: a temporary file cannot be written: {}", png.name,
                      std::strerror(errno));
    const std::string fault = Spawn(input.get(), picture.get(), messages.get());
    if (!fault.empty()) throw Failure("{} cannot be drawn: {}", png.name, fault);
}
