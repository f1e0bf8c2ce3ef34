#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "client/settings_text.h"
#include "desktop/window/widgets.h"

namespace {

// Below this level of one side, readings don't count for equal loudness.
constexpr double kQuietDb = -60;
constexpr double kMatchReadings = 30;  // the mean goes over 3 s
constexpr double kMostMatchDb = 24;
constexpr double kLowestDb = -60;  // of a level bar

AdwPreferencesGroup* AddGroup(GtkWidget* page, const char* title, const char* description = "") {
    GtkWidget* const group = adw_preferences_group_new();
    adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(group), title);
    adw_preferences_group_set_description(ADW_PREFERENCES_GROUP(group), description);
    adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(group));
    return ADW_PREFERENCES_GROUP(group);
}

GtkWidget* AddRow(AdwPreferencesGroup* group, const char* title) {
    GtkWidget* const row = adw_action_row_new();
    adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row), title);
    adw_preferences_group_add(group, row);
    return row;
}

GtkWidget* NewValue() {
    GtkWidget* const label = gtk_label_new("–");
    gtk_widget_add_css_class(label, "numeric");
    gtk_label_set_width_chars(GTK_LABEL(label), 9);
    gtk_label_set_xalign(GTK_LABEL(label), 1);
    return label;
}

void SetText(GtkWidget* label, const std::string& text) {
    if (text != gtk_label_get_text(GTK_LABEL(label)))
        gtk_label_set_text(GTK_LABEL(label), text.c_str());
}

std::string SettingsName(const Preset* preset) {
    return preset != nullptr ? Sentence(preset->name) : "Your own settings";
}

std::string LevelText(double db) {
    return db > kQuietDb ? SignedText(db) + " dB" : "–";
}

Settings::Levels ActingLevels(const Settings& settings) {
    return settings.IsOn(PARAM_EQUALIZER_ENABLE) ? settings.BandLevels() : Settings::Levels{};
}

}  // namespace

SoundPage::SoundPage(Link* client, const std::function<void()>& openSettings)
    : link(client), page(adw_preferences_page_new()) {
    AddTop();
    AddPresets();
    AddTone(openSettings);
    AddLevels();
    AddRouting();
}

void SoundPage::AddTop() {
    AdwPreferencesGroup* const group = AddGroup(page, "");
    onRow = AddRow(group, "Effect");
    onSwitch = gtk_switch_new();
    gtk_widget_set_valign(onSwitch, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(onRow), onSwitch);
    adw_action_row_set_activatable_widget(ADW_ACTION_ROW(onRow), onSwitch);
    Connect(onSwitch, "notify::active", [this] {
        if (!isShowing) link->SetOn(link->Output(), gtk_switch_get_active(GTK_SWITCH(onSwitch)));
    });

    listenRow = AddRow(group, "Listen to");
    GtkWidget* const sides = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
    gtk_widget_add_css_class(sides, "linked");
    gtk_widget_set_valign(sides, GTK_ALIGN_CENTER);
    before = gtk_toggle_button_new_with_label("Before");
    after = gtk_toggle_button_new_with_label("After");
    gtk_toggle_button_set_group(GTK_TOGGLE_BUTTON(before), GTK_TOGGLE_BUTTON(after));
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(after), true);
    for (GtkWidget* const side : {before, after}) {
        gtk_widget_set_tooltip_text(side, "Ctrl+B switches");
        gtk_box_append(GTK_BOX(sides), side);
    }
    Connect(before, "toggled", [this] {
        if (!isShowing) Listen(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(before)));
    });
    adw_action_row_add_suffix(ADW_ACTION_ROW(listenRow), sides);
    ofEffect.push_back(listenRow);
    Listen(false);
}

void SoundPage::AddPresets() {
    AdwPreferencesGroup* const group = AddGroup(page, "Sound");
    GtkWidget* const flow = gtk_flow_box_new();
    gtk_flow_box_set_selection_mode(GTK_FLOW_BOX(flow), GTK_SELECTION_NONE);
    gtk_flow_box_set_max_children_per_line(GTK_FLOW_BOX(flow), 7);
    gtk_flow_box_set_homogeneous(GTK_FLOW_BOX(flow), true);
    noPreset = gtk_toggle_button_new();  // stands for settings of the listener's own
    g_object_ref_sink(noPreset);
    for (const Preset& preset : Presets()) {
        const std::string name = Sentence(preset.name);
        GtkWidget* const button = gtk_toggle_button_new_with_label(name.c_str());
        gtk_toggle_button_set_group(GTK_TOGGLE_BUTTON(button), GTK_TOGGLE_BUTTON(noPreset));
        SetName(button, name, Sentence(preset.purpose));
        gtk_widget_set_tooltip_text(button, Sentence(preset.purpose).c_str());
        Connect(button, "toggled", [this, button, &preset] {
            if (isShowing || !gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(button))) return;
            Listen(false);
            link->Change(SettingsOf(preset));
        });
        gtk_flow_box_append(GTK_FLOW_BOX(flow), button);
        gtk_widget_set_focusable(gtk_widget_get_parent(button), false);  // the button is enough
        presetButtons[&preset] = button;
    }
    // Room for the longest text, so that nothing moves below while the tone is dragged.
    purpose = gtk_stack_new();
    gtk_widget_set_margin_top(purpose, 6);
    const auto addText = [this](const char* name, const std::string& text) {
        GtkWidget* const note = NewNote(text);
        gtk_label_set_yalign(GTK_LABEL(note), 0);
        gtk_stack_add_named(GTK_STACK(purpose), note, name);
    };
    for (const Preset& preset : Presets()) addText(preset.name, Sentence(preset.description) + ".");
    addText("", SettingsName(nullptr));
    adw_preferences_group_add(group, flow);
    adw_preferences_group_add(group, purpose);
    ofEffect.push_back(GTK_WIDGET(group));
}

void SoundPage::AddTone(const std::function<void()>& openSettings) {
    AdwPreferencesGroup* const group = AddGroup(page, "Tone", "Drag the points");
    const auto setLevels = [this](const Settings::Levels& levels) {
        Settings settings = link->Present();
        for (size_t band = 0; band < levels.size(); ++band) settings.SetBand(band, levels[band]);
        if (!settings.IsOn(PARAM_EQUALIZER_ENABLE)) settings.Unset(PARAM_EQUALIZER_ENABLE);
        link->Change(settings);
    };
    tone = std::make_unique<ToneCurve>(setLevels);
    GtkWidget* const flat = gtk_button_new_with_label("Flat");
    SetName(flat, "Flat tone");
    gtk_widget_set_valign(flat, GTK_ALIGN_CENTER);
    Connect(flat, "clicked", [setLevels] { setLevels({}); });
    adw_preferences_group_set_header_suffix(group, flat);
    adw_preferences_group_add(group, tone->Widget());
    ofEffect.push_back(GTK_WIDGET(group));

    AdwPreferencesGroup* const more = AddGroup(page, "");
    GtkWidget* const row = AddRow(more, "All settings");
    GtkWidget* const open = gtk_button_new_from_icon_name("go-next-symbolic");
    gtk_widget_add_css_class(open, "flat");
    gtk_widget_set_valign(open, GTK_ALIGN_CENTER);
    adw_action_row_add_suffix(ADW_ACTION_ROW(row), open);
    adw_action_row_set_activatable_widget(ADW_ACTION_ROW(row), open);
    Connect(open, "clicked", openSettings);
    ofEffect.push_back(GTK_WIDGET(more));
}

GtkWidget* SoundPage::AddLevel(AdwPreferencesGroup* group, const char* title, GtkWidget** value) {
    GtkWidget* const row = AddRow(group, title);
    GtkWidget* const bar = gtk_level_bar_new_for_interval(0, -kLowestDb);
    for (const char* const offset :
         {GTK_LEVEL_BAR_OFFSET_LOW, GTK_LEVEL_BAR_OFFSET_HIGH, GTK_LEVEL_BAR_OFFSET_FULL})
        gtk_level_bar_remove_offset_value(GTK_LEVEL_BAR(bar), offset);
    gtk_widget_set_valign(bar, GTK_ALIGN_CENTER);
    gtk_widget_set_size_request(bar, 170, -1);
    SetName(bar, std::string("Level ") + title, "In decibels above -60");
    *value = NewValue();
    adw_action_row_add_suffix(ADW_ACTION_ROW(row), bar);
    adw_action_row_add_suffix(ADW_ACTION_ROW(row), *value);
    return bar;
}

void SoundPage::AddLevels() {
    AdwPreferencesGroup* const group = AddGroup(page, "Levels");
    beforeBar = AddLevel(group, "Before", &beforeText);
    afterBar = AddLevel(group, "After", &afterText);
    gainText = NewValue();
    adw_action_row_add_suffix(ADW_ACTION_ROW(AddRow(group, "Gain")), gainText);
    GtkWidget* const limits = AddRow(group, "Limiting");
    adw_action_row_set_subtitle(ADW_ACTION_ROW(limits), "Peaks are lowered to the peak limit");
    limitText = NewValue();
    adw_action_row_add_suffix(ADW_ACTION_ROW(limits), limitText);
    ofEffect.push_back(GTK_WIDGET(group));
}

void SoundPage::AddRouting() {
    outputs = std::make_unique<SwitchRows>(
        AddGroup(page, "Outputs", "Each output has its own settings. They come back with it."),
        [this](const std::string& name, bool wanted) { link->SetOn(name, wanted); });
    players = std::make_unique<SwitchRows>(
        AddGroup(page, "Applications", "Switched off, an application is played directly."),
        [this](const std::string& name, bool wanted) { link->SetLeftOut(name, !wanted); });
}

void SoundPage::ShowRouting() {
    std::vector<SwitchRows::Row> rows;
    for (const OutputView& output : link->Outputs()) {
        std::string text = !output.hasProfile ? "No settings of its own"
                           : output.isOn      ? SettingsName(PresetLike(output.settings))
                                              : "Off here";
        if (output.isPresent) text += " · you listen to it";
        if (!output.isConnected) text += " · not connected";
        rows.push_back({output.name, output.isConnected ? output.description : output.name, text,
                        output.isOn, true});
    }
    outputs->Show(rows);

    rows.clear();
    const auto isListed = [&rows](const std::string& application) {
        return std::any_of(rows.begin(), rows.end(), [&](const SwitchRows::Row& row) {
            return g_ascii_strcasecmp(row.key.c_str(), application.c_str()) == 0;
        });
    };
    for (const PlayerView& player : link->Players()) {
        if (player.application.empty() || isListed(player.application)) continue;
        rows.push_back({player.application, player.application,
                        player.hasOwnTarget ? "It has an output of its own" : player.title,
                        !player.isLeftOut && !player.hasOwnTarget, !player.hasOwnTarget});
    }
    for (const std::string& application : link->LeftOut())
        if (!isListed(application))
            rows.push_back({application, application, "Left out", false, true});
    players->Show(rows);
}

void SoundPage::Show() {
    isShowing = true;
    const Settings& settings = link->Present();
    const bool hasOutput = !link->Output().empty();
    adw_action_row_set_subtitle(ADW_ACTION_ROW(onRow),
                                !hasOutput      ? "There is no output"
                                : !link->IsOn() ? "Everything is played directly"
                                : link->LatencyMs() > 0
                                    ? fmt::format("{:.0f} ms of latency", link->LatencyMs()).c_str()
                                    : "");
    gtk_widget_set_sensitive(onRow, hasOutput);
    SetSwitch(onSwitch, link->IsOn());
    for (GtkWidget* const widget : ofEffect) gtk_widget_set_sensitive(widget, link->IsOn());

    const Preset* const preset = PresetLike(settings);
    gtk_toggle_button_set_active(
        GTK_TOGGLE_BUTTON(preset != nullptr ? presetButtons.at(preset) : noPreset), true);
    gtk_stack_set_visible_child_name(GTK_STACK(purpose), preset != nullptr ? preset->name : "");
    tone->Show(ActingLevels(settings), link->RateHz() > 0 ? link->RateHz() : 48000);
    ShowRouting();
    if (const std::string sound = link->Output() + Describe(settings); sound != matched) {
        matched = sound;
        readings = 0;
        if (isBefore) Listen(false);
    }
    isShowing = false;
}

void SoundPage::ShowLevels() {
    const LevelsView& levels = link->Levels();
    const double afterDb = isBefore ? levels.beforeDb + heldGainDb : levels.afterDb;
    if (!isBefore && std::min(levels.beforeDb, levels.afterDb) > kQuietDb) {
        const double part = 1 / std::min<double>(++readings, kMatchReadings);
        beforePower += (std::pow(10, levels.beforeDb / 10) - beforePower) * part;
        afterPower += (std::pow(10, levels.afterDb / 10) - afterPower) * part;
    }
    gtk_level_bar_set_value(GTK_LEVEL_BAR(beforeBar),
                            std::clamp(levels.beforeDb - kLowestDb, 0.0, -kLowestDb));
    gtk_level_bar_set_value(GTK_LEVEL_BAR(afterBar),
                            std::clamp(afterDb - kLowestDb, 0.0, -kLowestDb));
    SetText(beforeText, LevelText(levels.beforeDb));
    SetText(afterText, isBefore ? "–" : LevelText(levels.afterDb));
    SetText(gainText, isBefore || levels.beforeDb <= kQuietDb ? "–" : LevelText(levels.gainDb));
    SetText(limitText, levels.isLimiting && !isBefore ? "Now" : "–");
}

double SoundPage::MatchDb() const {
    if (readings == 0) return 0;
    return std::clamp(10 * std::log10(afterPower / beforePower), -kMostMatchDb, kMostMatchDb);
}

void SoundPage::Listen(bool toBefore) {
    if (toBefore != isBefore) {
        isBefore = toBefore;
        heldGainDb = isBefore ? MatchDb() : 0;
        link->SetBypass(isBefore, heldGainDb);
    }
    const bool wasShowing = std::exchange(isShowing, true);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(isBefore ? before : after), true);
    isShowing = wasShowing;
    adw_action_row_set_subtitle(
        ADW_ACTION_ROW(listenRow),
        isBefore ? fmt::format("{} dB, to be as loud as after", SignedText(heldGainDb)).c_str()
                 : "Both equally loud");
}

void SoundPage::Switch() {
    if (link->IsOn()) Listen(!isBefore);
}
