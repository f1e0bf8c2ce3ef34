// The parts of the window. Each shows what a Link tells, and tells the Link what the listener does.
//
// A part lives at least as long as its widgets. Thread: the program's first.
#pragma once
#include <adwaita.h>

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "client/controls.h"
#include "client/presets.h"
#include "client/tone.h"
#include "desktop/window/link.h"

// Calls `action` at each signal. Only for signals whose handlers return nothing.
void Connect(gpointer object, const char* signal, std::function<void()> action);

// Returns the text with a capital as its first letter.
std::string Sentence(std::string text);
// Returns the preset that sounds like these settings, or null.
const Preset* PresetLike(const Settings& settings);
// Returns "+3.0" or "−3.0", with a minus sign instead of a hyphen; 0 has no sign.
std::string SignedText(double db, int decimals = 1);
// Returns "200 Hz" or "1.5 kHz".
std::string HzText(double hz);
// Returns a small label whose text may take several lines.
GtkWidget* NewNote(const std::string& text);
// Moves a switch, but doesn't tell it a state that it has already. A switch that the listener has
// just pressed would take that for its new state and lose the press (GTK 4.8).
void SetSwitch(GtkWidget* toggle, bool isOn);
void SetName(GtkWidget* widget, const std::string& name, const std::string& description = "");

// Rows of a group, each with a switch. A row that stays keeps its widgets, and with them the focus.
class SwitchRows {
public:
    struct Row {
        std::string key, title, subtitle;
        bool isOn, isSensitive;
    };
    SwitchRows(AdwPreferencesGroup* parent,
               std::function<void(const std::string&, bool)> whenMoved);
    void Show(const std::vector<Row>& wanted);

private:
    struct Widgets {
        GtkWidget *row, *toggle;
    };
    AdwPreferencesGroup* group;
    std::function<void(const std::string&, bool)> moved;
    std::map<std::string, Widgets> rows;
    bool isShowing = false;
};

// The equalizer's response, with points to drag. The ten levels are fitted to the points.
class ToneCurve {
public:
    explicit ToneCurve(std::function<void(const Settings::Levels&)> whenMoved);
    GtkWidget* Widget() { return box; }
    // levels: those that act, so 0 while the equalizer is off.
    void Show(const Settings::Levels& levels, double ofRateHz);

private:
    static constexpr size_t kPoints = 8;
    struct Area {
        double left, top, width, height;
        double X(double hz) const;
        double Y(double db) const;
        double Hz(double x) const;
        double Db(double y) const;
    };
    Area PlotArea() const;
    void Draw(cairo_t* cairo);
    void DrawGrid(cairo_t* cairo, const Area& plot);
    void DrawCurve(cairo_t* cairo, const Area& plot);
    void Text(cairo_t* cairo, const std::string& text, double x, double y, double alignment);
    void MovePoint(double hz, double db);
    bool Press(guint key, bool withControl);
    bool Grab(double x, double y);
    void Tell();

    GtkWidget *box, *area, *note;
    std::function<void(const Settings::Levels&)> moved;
    std::array<TonePoint, kPoints> points;
    size_t chosen = 0;
    bool isDragged = false, isDrawn = false;  // isDrawn: by the listener, so points are the aim
    double grabX = 0, grabY = 0;
    Settings::Levels shown{};
    double rateHz = 48000;
};

// The first page: presets, before and after, tone, levels, outputs and applications.
class SoundPage {
public:
    SoundPage(Link* client, const std::function<void()>& openSettings);
    GtkWidget* Widget() { return page; }
    void Show();
    void ShowLevels();
    // Changes between before and after.
    void Switch();

private:
    void AddTop();
    void AddPresets();
    void AddTone(const std::function<void()>& openSettings);
    void AddLevels();
    GtkWidget* AddLevel(AdwPreferencesGroup* group, const char* title, GtkWidget** value);
    void AddRouting();
    void ShowRouting();
    void Listen(bool before);
    double MatchDb() const;

    Link* link;
    GtkWidget* page;
    std::vector<GtkWidget*> ofEffect;  // of no use while the effect is off
    GtkWidget *onRow, *onSwitch, *listenRow, *before, *after;
    std::map<const Preset*, GtkWidget*> presetButtons;
    GtkWidget *noPreset, *purpose;
    std::unique_ptr<ToneCurve> tone;
    GtkWidget *beforeBar, *afterBar, *beforeText, *afterText, *gainText, *limitText;
    std::unique_ptr<SwitchRows> outputs, players;
    bool isShowing = false, isBefore = false;
    double heldGainDb = 0;  // of the input while it is heard
    // The mean power of both sides since the settings moved, for equal loudness.
    double beforePower = 0, afterPower = 0;
    int readings = 0;
    std::string matched;
};

// The second page: every setting of the table.
class SettingsPage {
public:
    explicit SettingsPage(Link* client);
    GtkWidget* Widget() { return page; }
    void Show();

private:
    struct Row {
        const Control* control;
        GtkWidget* row;
        GtkAdjustment* adjustment;  // null for a switch
        GtkWidget* toggle;          // null for a value
    };
    void Add(const Control& control, GtkWidget* parent);
    void Moved(const Row& row);

    Link* link;
    GtkWidget* page;
    std::vector<std::unique_ptr<Row>> rows;
    bool isShowing = false;
};
