#include <cmath>

#include "desktop/window/widgets.h"

namespace {

constexpr double kEqualizerRateHz = 48000;  // at which the bands' frequencies are told

bool IsPercent(const Control& control) {
    return control.IsBand();
}

std::string UnitOf(const Control& control) {
    return control.IsDecibels() ? "dB" : IsPercent(control) ? "%" : "";
}

std::string BandName(int32_t band) {
    const double hz = BandHz(static_cast<size_t>(band), kEqualizerRateHz);
    return (band == 0 ? "Below " : "Around ") + HzText(hz);
}

}  // namespace

SettingsPage::SettingsPage(Link* client) : link(client), page(adw_preferences_page_new()) {
    std::string name;
    GtkWidget *group = nullptr, *bands = nullptr;
    for (const Control& control : kControls) {
        if (name != control.parameter->group) {
            name = control.parameter->group;
            group = adw_preferences_group_new();
            if (!control.IsSwitch())  // a switch is its group's heading
                adw_preferences_group_set_title(ADW_PREFERENCES_GROUP(group),
                                                Sentence(name).c_str());
            adw_preferences_page_add(ADW_PREFERENCES_PAGE(page), ADW_PREFERENCES_GROUP(group));
        }
        if (control.IsBand() && control.band == 0) {
            bands = adw_expander_row_new();
            adw_preferences_row_set_title(ADW_PREFERENCES_ROW(bands), "Its ten bands");
            adw_preferences_group_add(ADW_PREFERENCES_GROUP(group), bands);
        }
        Add(control, control.IsBand() ? bands : group);
    }
}

void SettingsPage::Add(const Control& control, GtkWidget* parent) {
    const Parameter& parameter = *control.parameter;
    const std::string name = control.IsBand() ? BandName(control.band) : parameter.label;
    const std::string law = Sentence(parameter.law) + ".";
    rows.push_back(std::make_unique<Row>(Row{&control, nullptr, nullptr, nullptr}));
    Row& row = *rows.back();
    if (control.IsSwitch()) {
        row.row = adw_action_row_new();
        row.toggle = gtk_switch_new();
        gtk_widget_set_valign(row.toggle, GTK_ALIGN_CENTER);
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row.row), name.c_str());
        adw_action_row_set_subtitle(ADW_ACTION_ROW(row.row), law.c_str());
        adw_action_row_add_suffix(ADW_ACTION_ROW(row.row), row.toggle);
        adw_action_row_set_activatable_widget(ADW_ACTION_ROW(row.row), row.toggle);
        Connect(row.toggle, "notify::active", [this, &row] { Moved(row); });
    } else {
        const double low = control.ToPort(parameter.minimum),
                     high = control.ToPort(parameter.maximum);
        const double step = control.IsDecibels() ? 0.1 : IsPercent(control) ? 1 : 0.01;
        row.adjustment = gtk_adjustment_new(0, low, high, step, 10 * step, 0);
        GtkWidget* const title = gtk_label_new(name.c_str());
        gtk_label_set_xalign(GTK_LABEL(title), 0);
        gtk_label_set_wrap(GTK_LABEL(title), true);
        gtk_widget_set_hexpand(title, true);
        GtkWidget* const number = gtk_spin_button_new(row.adjustment, step,
                                                      IsPercent(control) ? 0
                                                      : step < 0.1       ? 2
                                                                         : 1);
        gtk_editable_set_width_chars(GTK_EDITABLE(number), 5);
        GtkWidget* const scale = gtk_scale_new(GTK_ORIENTATION_HORIZONTAL, row.adjustment);
        gtk_scale_add_mark(GTK_SCALE(scale), control.ToPort(parameter.defaultValue), GTK_POS_BOTTOM,
                           nullptr);
        SetName(number, name + (UnitOf(control).empty() ? "" : ", " + UnitOf(control)), law);
        SetName(scale, name, law);
        GtkWidget* const top = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
        GtkWidget* const unit = gtk_label_new(UnitOf(control).c_str());
        gtk_label_set_width_chars(GTK_LABEL(unit), 3);
        for (GtkWidget* const part : {title, number, unit}) gtk_box_append(GTK_BOX(top), part);
        GtkWidget* const all = gtk_box_new(GTK_ORIENTATION_VERTICAL, 3);
        gtk_box_append(GTK_BOX(all), top);
        gtk_box_append(GTK_BOX(all), scale);
        if (!control.IsBand()) gtk_box_append(GTK_BOX(all), NewNote(law));
        gtk_widget_set_margin_start(all, 12);
        gtk_widget_set_margin_end(all, 6);
        gtk_widget_set_margin_top(all, 9);
        gtk_widget_set_margin_bottom(all, 9);
        row.row = adw_preferences_row_new();
        adw_preferences_row_set_title(ADW_PREFERENCES_ROW(row.row), name.c_str());
        gtk_list_box_row_set_child(GTK_LIST_BOX_ROW(row.row), all);
        gtk_list_box_row_set_activatable(GTK_LIST_BOX_ROW(row.row), false);
        gtk_widget_set_focusable(row.row, false);  // its two controls take the keys
        Connect(row.adjustment, "value-changed", [this, &row] { Moved(row); });
    }
    if (ADW_IS_EXPANDER_ROW(parent))
        adw_expander_row_add_row(ADW_EXPANDER_ROW(parent), row.row);
    else
        adw_preferences_group_add(ADW_PREFERENCES_GROUP(parent), row.row);
}

void SettingsPage::Moved(const Row& row) {
    if (isShowing) return;
    Settings settings = link->Present();
    SetValue(
        &settings, *row.control,
        row.toggle != nullptr
            ? gtk_switch_get_active(GTK_SWITCH(row.toggle))
            : row.control->FromPort(static_cast<float>(gtk_adjustment_get_value(row.adjustment))));
    link->Change(settings);
}

void SettingsPage::Show() {
    isShowing = true;
    const Settings& settings = link->Present();
    for (const auto& row : rows) {
        const double value = ValueOf(settings, *row->control);
        if (row->toggle != nullptr)
            SetSwitch(row->toggle, value != 0);
        else if (std::abs(gtk_adjustment_get_value(row->adjustment) - row->control->ToPort(value)) >
                 0.5 * gtk_adjustment_get_step_increment(row->adjustment))
            gtk_adjustment_set_value(row->adjustment, row->control->ToPort(value));
        gtk_widget_set_sensitive(row->row, settings.Acts(*row->control->parameter));
    }
    isShowing = false;
}
