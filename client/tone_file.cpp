#include "client/tone_file.h"

#include <cmath>
#include <complex>
#include <filesystem>
#include <numbers>

#include "client/settings_file.h"
#include "client/settings_reader.h"
#include "client/settings_text.h"

namespace {

constexpr double kLowestHz = 10, kHighestHz = 24000;  // of the points, as for ReadTone
constexpr double kLowestHeardHz = 20, kHighestHeardHz = 20000;
constexpr double kLeastDb = -60, kMostDb = 20;
constexpr double kPerOctave = 24;
constexpr double kFilterRateHz = 48000;

enum class FilterKind { kBell, kLowShelf, kHighShelf };

struct Filter {
    FilterKind kind = FilterKind::kBell;
    double hz = 0, db = 0, q = 0;
};

// Returns the gain of a filter in dB. The coefficients are those of Robert Bristow-Johnson's
// cookbook, which the publishers of such files use.
double FilterDb(const Filter& filter, double hz) {
    const double a = std::pow(10, filter.db / 40);
    const double w = 2 * std::numbers::pi * filter.hz / kFilterRateHz;
    const double cosine = std::cos(w), alpha = std::sin(w) / (2 * filter.q);
    const double root = 2 * std::sqrt(a) * alpha;
    // The high shelf is the low shelf mirrored in frequency.
    const double c = filter.kind == FilterKind::kHighShelf ? -cosine : cosine;
    double b0 = 1 + alpha * a, b1 = -2 * cosine, b2 = 1 - alpha * a;
    double a0 = 1 + alpha / a, a1 = b1, a2 = 1 - alpha / a;
    if (filter.kind != FilterKind::kBell) {
        const double sign = filter.kind == FilterKind::kHighShelf ? -1 : 1;
        b0 = a * ((a + 1) - (a - 1) * c + root);
        b1 = sign * 2 * a * ((a - 1) - (a + 1) * c);
        b2 = a * ((a + 1) - (a - 1) * c - root);
        a0 = (a + 1) + (a - 1) * c + root;
        a1 = sign * -2 * ((a - 1) + (a + 1) * c);
        a2 = (a + 1) + (a - 1) * c - root;
    }
    const auto back = std::polar(1.0, -2 * std::numbers::pi * hz / kFilterRateHz);
    return 20 * std::log10(std::abs((b0 + b1 * back + b2 * back * back) /
                                    (a0 + a1 * back + a2 * back * back)));
}

// Cuts the next word from *rest. Returns an empty word at the end.
std::string_view NextWord(std::string_view* rest) {
    *rest = Trimmed(*rest);
    const std::string_view word = rest->substr(0, rest->find_first_of(" \t"));
    rest->remove_prefix(word.size());
    return word;
}

bool ReadKind(std::string_view word, FilterKind* kind) {
    if (word == "PK" || word == "PEQ")
        *kind = FilterKind::kBell;
    else if (word == "LSC" || word == "LS")
        *kind = FilterKind::kLowShelf;
    else if (word == "HSC" || word == "HS")
        *kind = FilterKind::kHighShelf;
    else
        return false;
    return true;
}

// Holds what the lines of a file say.
struct FileCurve {
    double preampDb = 0;
    std::vector<Filter> filters;
    std::vector<TonePoint> graph;

    double DbAt(double hz) const {
        double db = preampDb + (graph.empty() ? 0 : CurveDb(graph, hz));
        for (const Filter& filter : filters) db += FilterDb(filter, hz);
        return db;
    }
};

// The functions below read what follows the colon of a line. They return "" or what is wrong.

std::string ReadPreamp(std::string_view text, double* sumDb) {
    double db = 0;
    if (!ReadNumber(NextWord(&text), &db) || !(std::abs(db) <= -kLeastDb))
        return "Preamp takes a gain in dB";
    *sumDb += db;
    return "";
}

std::string ReadFilter(std::string_view text, std::vector<Filter>* filters) {
    const std::string_view state = NextWord(&text), kind = NextWord(&text);
    if (state == "OFF" || kind == "None") return "";
    Filter filter;
    if (state != "ON" || !ReadKind(kind, &filter.kind))
        return "a filter is ON or OFF, and PK, LSC or HSC";
    if (filter.kind != FilterKind::kBell) filter.q = std::numbers::sqrt2 / 2;
    for (std::string_view word = NextWord(&text); !word.empty(); word = NextWord(&text)) {
        double* const value = word == "Fc"     ? &filter.hz
                              : word == "Gain" ? &filter.db
                              : word == "Q"    ? &filter.q
                                               : nullptr;
        const bool isUnit = word == "Hz" || word == "dB";
        if (!isUnit && (value == nullptr || !ReadNumber(NextWord(&text), value)))
            return "a filter takes Fc, Gain and Q with a number each";
    }
    if (!(filter.hz >= 1 && filter.hz < kFilterRateHz / 2 && filter.q >= 0.01 && filter.q <= 100 &&
          std::abs(filter.db) <= -kLeastDb))
        return "a filter's Fc is 1 to 24000 Hz, its Gain -60 to 60 dB, its Q 0.01 to 100";
    filters->push_back(filter);
    return "";
}

std::string ReadGraph(std::string_view text, std::vector<TonePoint>* graph) {
    if (!graph->empty()) return "GraphicEQ stands here a second time";
    std::string_view item;
    while (NextPart(&text, ';', &item)) {
        if (item.empty()) continue;
        TonePoint point{};
        if (!ReadNumber(NextWord(&item), &point.hz) || !ReadNumber(NextWord(&item), &point.db) ||
            !item.empty() || !(point.hz > 0 && std::abs(point.db) <= 200))
            return "GraphicEQ takes a frequency and a gain, separated by semicolons";
        if (!graph->empty() && point.hz <= graph->back().hz)
            return "the frequencies of GraphicEQ must ascend";
        graph->push_back(point);
    }
    return graph->empty() ? "GraphicEQ has no points" : "";
}

std::string ReadLine(std::string_view line, FileCurve* curve) {
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) return "";
    const std::string_view rest = line.substr(colon + 1);
    std::string_view before = line.substr(0, colon);
    const std::string_view command = NextWord(&before);
    if (command == "Preamp") return ReadPreamp(rest, &curve->preampDb);
    if (command == "Filter") return ReadFilter(rest, &curve->filters);
    if (command == "GraphicEQ") return ReadGraph(rest, &curve->graph);
    return "";
}

std::string AddPoint(double hz, double db, std::vector<TonePoint>* points) {
    if (db > kMostDb && hz >= kLowestHeardHz && hz <= kHighestHeardHz)
        return "the curve has " + DecibelText(db) + " dB at " + NumberText(std::round(hz)) +
               " Hz, more than " + NumberText(kMostDb) + " dB";
    points->push_back({hz, std::clamp(db, kLeastDb, kMostDb)});
    return "";
}

}  // namespace

std::string ReadToneFile(std::string_view text, ToneCurve* curve) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    FileCurve found;
    std::string_view line;
    for (int number = 1; NextPart(&text, '\n', &line); ++number)
        if (const std::string fault = ReadLine(line, &found); !fault.empty())
            return std::to_string(number) + ": " + fault;
    *curve = {{}, ToneFocus::kMiddle};
    if (found.filters.empty() && found.graph.empty())
        return " no line begins with GraphicEQ, or with Filter and is ON";
    std::string fault;
    if (!found.filters.empty()) {
        for (int i = 0; fault.empty(); ++i) {
            const double hz = kLowestHz * std::exp2(i / kPerOctave);
            if (hz >= kHighestHz) return "";
            fault = AddPoint(hz, found.DbAt(hz), &curve->points);
        }
        return " " + fault;
    }
    // The points themselves, and the curve at the ends where points lie beyond them.
    for (const TonePoint& point : found.graph) {
        const double hz = std::clamp(point.hz, kLowestHz, kHighestHz);
        std::vector<TonePoint>& points = curve->points;
        if (!points.empty() && points.back().hz == hz) continue;
        fault = AddPoint(hz, found.DbAt(hz), &points);
        if (!fault.empty()) return " " + fault;
    }
    return "";
}

std::string ReadToneNamed(const std::string& textOrPath, ToneCurve* curve) {
    std::error_code ignored;
    if (textOrPath.find('/') == std::string::npos && !std::filesystem::exists(textOrPath, ignored))
        return ReadTone(textOrPath, &curve->points);
    std::string text;
    std::string fault = ReadSmallFile(textOrPath, "a tone curve", &text);
    if (!fault.empty()) return fault;
    fault = ReadToneFile(text, curve);
    return fault.empty() ? "" : textOrPath + ":" + fault;
}
