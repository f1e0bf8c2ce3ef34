// Small things that the pages share.
#include <fmt/core.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "client/settings_text.h"
#include "desktop/window/widgets.h"

void Connect(gpointer object, const char* signal, std::function<void()> action) {
    using Action = std::function<void()>;
    g_signal_connect_data(
        object, signal, G_CALLBACK(+[](Action* held) { (*held)(); }), new Action(std::move(action)),
        [](gpointer held, GClosure*) { delete static_cast<Action*>(held); }, G_CONNECT_SWAPPED);
}

std::string Sentence(std::string text) {
    if (!text.empty())
        text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text;
}

const Preset* PresetLike(const Settings& settings) {
    const std::string wanted = Describe(settings);
    for (const Preset& preset : Presets())
        if (Describe(SettingsOf(preset)) == wanted) return &preset;
    return nullptr;
}

std::string SignedText(double db, int decimals) {
    const double scale = std::pow(10, decimals), rounded = std::round(db * scale) / scale;
    return fmt::format("{}{:.{}f}",
                       rounded < 0   ? "−"
                       : rounded > 0 ? "+"
                                     : "",
                       std::abs(rounded), decimals);
}

GtkWidget* NewNote(const std::string& text) {
    GtkWidget* const note = gtk_label_new(text.c_str());
    gtk_label_set_wrap(GTK_LABEL(note), true);
    gtk_label_set_xalign(GTK_LABEL(note), 0);
    gtk_widget_add_css_class(note, "dim-label");
    gtk_widget_add_css_class(note, "caption");
    return note;
}

std::string HzText(double hz) {
    return hz < 1000 ? fmt::format("{:.0f} Hz", hz) : fmt::format("{:.2g} kHz", hz / 1000);
}

void SetName(GtkWidget* widget, const std::string& name, const std::string& description) {
    gtk_accessible_update_property(GTK_ACCESSIBLE(widget), GTK_ACCESSIBLE_PROPERTY_LABEL,
                                   name.c_str(), GTK_ACCESSIBLE_PROPERTY_DESCRIPTION,
                                   description.c_str(), -1);
}

void SetSwitch(GtkWidget* toggle, bool isOn) {
    if ((gtk_switch_get_active(GTK_SWITCH(toggle)) != 0) != isOn)
        gtk_switch_set_active(GTK_SWITCH(toggle), isOn);
}

SwitchRows::SwitchRows(AdwPreferencesGroup* parent,
                       std::function<void(const std::string&, bool)> whenMoved)
    : group(parent), moved(std::move(whenMoved)) {}

void SwitchRows::Show(const std::vector<Row>& wanted) {
    isShowing = true;
    std::erase_if(rows, [&](const auto& entry) {
        const bool isGone = std::none_of(wanted.begin(), wanted.end(),
                                         [&](const Row& row) { return row.key == entry.first; });
        if (isGone) adw_preferences_group_remove(group, entry.second.row);
        return isGone;
    });
    for (const Row& row : wanted) {
        Widgets& widgets = rows[row.key];
        if (widgets.row == nullptr) {
            widgets = {adw_action_row_new(), gtk_switch_new()};
            gtk_widget_set_valign(widgets.toggle, GTK_ALIGN_CENTER);
            adw_preferences_row_set_use_markup(ADW_PREFERENCES_ROW(widgets.row), false);
            adw_action_row_add_suffix(ADW_ACTION_ROW(widgets.row), widgets.toggle);
            adw_action_row_set_activatable_widget(ADW_ACTION_ROW(widgets.row), widgets.toggle);
            adw_preferences_group_add(group, widgets.row);
            Connect(widgets.toggle, "notify::active",
                    [this, key = row.key, toggle = widgets.toggle] {
                        if (!isShowing) moved(key, gtk_switch_get_active(GTK_SWITCH(toggle)));
                    });
        }
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(widgets.row), row.title.c_str());
        char* const subtitle = g_markup_escape_text(row.subtitle.c_str(), -1);
        adw_action_row_set_subtitle(ADW_ACTION_ROW(widgets.row), subtitle);
        g_free(subtitle);
        SetSwitch(widgets.toggle, row.isOn);
        gtk_widget_set_sensitive(widgets.row, row.isSensitive);
        // The row itself gives the switch its name.
        gtk_accessible_update_property(GTK_ACCESSIBLE(widgets.toggle),
                                       GTK_ACCESSIBLE_PROPERTY_DESCRIPTION, row.subtitle.c_str(),
                                       -1);
    }
    isShowing = false;
}
