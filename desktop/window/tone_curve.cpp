#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "desktop/window/widgets.h"

namespace {

constexpr double kLowHz = 20, kHighHz = 20000, kLowDb = -18, kHighDb = 12;
constexpr double kMostDb = 9.5;                       // about the most that all ten bands can give
const double kApart = std::exp2(1.0 / 6);             // the least ratio of two points' frequencies
constexpr double kGrabPixels = 24, kPointPixels = 6;  // radius
constexpr double kStepDb = 0.5, kPageDb = 3;
constexpr int kHeight = 240, kCurvePoints = 240;
constexpr char kHelp[] =
    "Left and Right choose a point. Up and Down move it. Left and Right with Control change its "
    "frequency. 0 sets it to zero.";

void UseColour(GtkWidget* widget, cairo_t* cairo, const char* name, double opacity) {
    GtkStyleContext* const style = gtk_widget_get_style_context(widget);
    GdkRGBA colour{};
    if (name == nullptr || !gtk_style_context_lookup_color(style, name, &colour))
        gtk_style_context_get_color(style, &colour);
    cairo_set_source_rgba(cairo, colour.red, colour.green, colour.blue, colour.alpha * opacity);
}

void Line(cairo_t* cairo, double fromX, double fromY, double toX, double toY) {
    cairo_move_to(cairo, fromX, fromY);
    cairo_line_to(cairo, toX, toY);
    cairo_stroke(cairo);
}

}  // namespace

double ToneCurve::Area::X(double hz) const {
    return left + width * std::log(hz / kLowHz) / std::log(kHighHz / kLowHz);
}
double ToneCurve::Area::Y(double db) const {
    return top + height * (kHighDb - db) / (kHighDb - kLowDb);
}
double ToneCurve::Area::Hz(double x) const {
    return kLowHz * std::pow(kHighHz / kLowHz, (x - left) / width);
}
double ToneCurve::Area::Db(double y) const {
    return kHighDb - (y - top) / height * (kHighDb - kLowDb);
}

ToneCurve::ToneCurve(std::function<void(const Settings::Levels&)> whenMoved)
    : box(gtk_box_new(GTK_ORIENTATION_VERTICAL, 6)),
      area(GTK_WIDGET(g_object_new(GTK_TYPE_DRAWING_AREA, "accessible-role",
                                   GTK_ACCESSIBLE_ROLE_SLIDER, nullptr))),
      note(NewNote("")),
      moved(std::move(whenMoved)),
      points{{{40, 0}, {90, 0}, {200, 0}, {450, 0}, {1000, 0}, {2500, 0}, {6000, 0}, {13000, 0}}} {
    gtk_drawing_area_set_content_height(GTK_DRAWING_AREA(area), kHeight);
    gtk_drawing_area_set_draw_func(
        GTK_DRAWING_AREA(area),
        [](GtkDrawingArea*, cairo_t* cairo, int, int, gpointer curve) {
            static_cast<ToneCurve*>(curve)->Draw(cairo);
        },
        this, nullptr);
    gtk_widget_set_focusable(area, true);
    gtk_widget_set_tooltip_text(area, kHelp);
    gtk_widget_add_css_class(area, "card");
    gtk_widget_set_visible(note, false);
    gtk_box_append(GTK_BOX(box), area);
    gtk_box_append(GTK_BOX(box), note);

    for (const char* const signal : {"notify::has-focus", "state-flags-changed"})
        Connect(area, signal, [this] { gtk_widget_queue_draw(area); });
    GtkEventController* const keys = gtk_event_controller_key_new();
    g_signal_connect(keys, "key-pressed",
                     G_CALLBACK(+[](GtkEventControllerKey*, guint key, guint, GdkModifierType state,
                                    gpointer curve) -> gboolean {
                         return static_cast<ToneCurve*>(curve)->Press(
                             key, (state & GDK_CONTROL_MASK) != 0);
                     }),
                     this);
    gtk_widget_add_controller(area, keys);

    GtkGesture* const drag = gtk_gesture_drag_new();
    g_signal_connect(drag, "drag-begin",
                     G_CALLBACK(+[](GtkGesture* gesture, double x, double y, gpointer curve) {
                         const bool isOurs = static_cast<ToneCurve*>(curve)->Grab(x, y);
                         gtk_gesture_set_state(gesture, isOurs ? GTK_EVENT_SEQUENCE_CLAIMED
                                                               : GTK_EVENT_SEQUENCE_DENIED);
                     }),
                     this);
    g_signal_connect(drag, "drag-update",
                     G_CALLBACK(+[](GtkGesture*, double x, double y, gpointer curve) {
                         auto* const self = static_cast<ToneCurve*>(curve);
                         const Area plot = self->PlotArea();
                         self->MovePoint(plot.Hz(self->grabX + x), plot.Db(self->grabY + y));
                     }),
                     this);
    Connect(drag, "drag-end", [this] {
        isDragged = false;
        gtk_widget_queue_draw(area);
    });
    gtk_widget_add_controller(area, GTK_EVENT_CONTROLLER(drag));
    Tell();
}

ToneCurve::Area ToneCurve::PlotArea() const {
    constexpr double kLeft = 38, kTop = 12, kRight = 14, kBottom = 24;  // room for labels
    return {kLeft, kTop, std::max(1.0, gtk_widget_get_width(area) - kLeft - kRight),
            std::max(1.0, gtk_widget_get_height(area) - kTop - kBottom)};
}

void ToneCurve::Show(const Settings::Levels& levels, double ofRateHz) {
    if (levels == shown && ofRateHz == rateHz) return;
    shown = levels;
    rateHz = ofRateHz;
    isDrawn = false;
    gtk_widget_set_visible(note, false);
    for (TonePoint& point : points)
        point.db = std::clamp(ToneDb(levels, point.hz, rateHz), kLowDb, kMostDb);
    Tell();
}

// Chooses the point there, if there is one.
bool ToneCurve::Grab(double x, double y) {
    const Area plot = PlotArea();
    const auto distance = [&](const TonePoint& point) {
        return std::hypot(plot.X(point.hz) - x, plot.Y(point.db) - y);
    };
    const auto* const nearest = std::min_element(
        points.begin(), points.end(),
        [&](const TonePoint& a, const TonePoint& b) { return distance(a) < distance(b); });
    if (distance(*nearest) > kGrabPixels) return false;
    chosen = static_cast<size_t>(nearest - points.begin());
    isDragged = true;
    grabX = plot.X(nearest->hz);
    grabY = plot.Y(nearest->db);
    gtk_widget_grab_focus(area);
    Tell();
    return true;
}

bool ToneCurve::Press(guint key, bool withControl) {
    const TonePoint point = points.at(chosen);
    const double ratio = std::exp2(1.0 / 12);
    switch (key) {
        case GDK_KEY_Left:
        case GDK_KEY_Right: {
            const bool isUp = key == GDK_KEY_Right;
            if (withControl)
                MovePoint(isUp ? point.hz * ratio : point.hz / ratio, point.db);
            else
                chosen = isUp ? std::min(chosen + 1, kPoints - 1) : chosen - (chosen > 0 ? 1 : 0);
            Tell();
            return true;
        }
        case GDK_KEY_Up:
            MovePoint(point.hz, point.db + kStepDb);
            return true;
        case GDK_KEY_Down:
            MovePoint(point.hz, point.db - kStepDb);
            return true;
        case GDK_KEY_Page_Up:
            MovePoint(point.hz, point.db + kPageDb);
            return true;
        case GDK_KEY_Page_Down:
            MovePoint(point.hz, point.db - kPageDb);
            return true;
        case GDK_KEY_0:
            MovePoint(point.hz, 0);
            return true;
        default:
            return false;
    }
}

// Moves the chosen point, no further than its neighbours and the plot allow.
void ToneCurve::MovePoint(double hz, double db) {
    const double low = chosen == 0 ? kLowHz : points.at(chosen - 1).hz * kApart;
    const double high = chosen + 1 == kPoints ? kHighHz : points.at(chosen + 1).hz / kApart;
    points.at(chosen) = {std::clamp(hz, low, high), std::clamp(db, kLowDb, kMostDb)};
    const ToneFit fit = FitTone(points, rateHz);
    Settings rounded;
    ApplyTone(fit, false, &rounded);
    shown = rounded.BandLevels();
    isDrawn = true;
    gtk_widget_set_visible(note, true);
    gtk_label_set_text(
        GTK_LABEL(note),
        (fit.IsNear()
             ? fmt::format("As drawn within {:.1f} dB.", fit.rmsDb)
             : fmt::format("Ten bands can't follow this curve everywhere: off by {:.1f} dB "
                           "at {}. The thick line is what you hear.",
                           std::abs(fit.worstDb), HzText(fit.worstHz)))
            .c_str());
    Tell();
    moved(shown);
}

// Tells a screen reader about the chosen point, and draws again.
void ToneCurve::Tell() {
    const TonePoint& point = points.at(chosen);
    const std::string value =
        fmt::format("{} decibels at {:.0f} hertz", SignedText(point.db), point.hz);
    SetName(area, fmt::format("Tone, point {} of {}: {}", chosen + 1, kPoints, value), kHelp);
    gtk_accessible_update_property(GTK_ACCESSIBLE(area), GTK_ACCESSIBLE_PROPERTY_VALUE_MIN, kLowDb,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_MAX, kMostDb,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_NOW, point.db,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_TEXT, value.c_str(), -1);
    gtk_widget_queue_draw(area);
}

// alignment: the part of the text's width that is left of x.
void ToneCurve::Text(cairo_t* cairo, const std::string& text, double x, double y,
                     double alignment) {
    PangoLayout* const layout = gtk_widget_create_pango_layout(area, text.c_str());
    PangoAttrList* const small = pango_attr_list_new();
    pango_attr_list_insert(small, pango_attr_scale_new(PANGO_SCALE_SMALL));
    pango_layout_set_attributes(layout, small);
    int width = 0, height = 0;
    pango_layout_get_pixel_size(layout, &width, &height);
    cairo_move_to(cairo, x - alignment * width, y - height / 2.0);
    pango_cairo_show_layout(cairo, layout);
    pango_attr_list_unref(small);
    g_object_unref(layout);
}

void ToneCurve::DrawGrid(cairo_t* cairo, const Area& plot) {
    constexpr double kNarrow = 420, kBelow = 12;
    cairo_set_line_width(cairo, 1);
    for (const int hz : {20, 50, 100, 200, 500, 1000, 2000, 5000, 10000, 20000}) {
        const double x = std::round(plot.X(hz)) + 0.5;
        UseColour(area, cairo, nullptr, 0.1);
        Line(cairo, x, plot.top, x, plot.top + plot.height);
        if (plot.width < kNarrow && hz != 50 && hz != 200 && hz != 1000 && hz != 5000) continue;
        UseColour(area, cairo, nullptr, 0.7);
        const std::string text = hz < 1000 ? std::to_string(hz) : fmt::format("{}k", hz / 1000);
        Text(cairo, hz == kHighHz ? text + " Hz" : text, hz == kHighHz ? x + 10 : x,
             plot.top + plot.height + kBelow, hz == kHighHz ? 1 : 0.5);
    }
    for (int db = static_cast<int>(kLowDb); db <= kHighDb; db += 6) {
        const double y = std::round(plot.Y(db)) + 0.5;
        UseColour(area, cairo, nullptr, db == 0 ? 0.45 : 0.1);
        Line(cairo, plot.left, y, plot.left + plot.width, y);
        UseColour(area, cairo, nullptr, 0.7);
        Text(cairo, db == kHighDb ? "dB" : SignedText(db, 0), plot.left - 6, y, 1);
    }
}

void ToneCurve::DrawCurve(cairo_t* cairo, const Area& plot) {
    const auto trace = [&](const auto& dbAt) {
        cairo_new_path(cairo);
        for (int n = 0; n <= kCurvePoints; ++n) {
            const double hz = kLowHz * std::pow(kHighHz / kLowHz, 1.0 * n / kCurvePoints);
            cairo_line_to(cairo, plot.X(hz), plot.Y(std::clamp(dbAt(hz), kLowDb, kHighDb)));
        }
        cairo_stroke(cairo);
    };
    if (isDrawn) {
        UseColour(area, cairo, nullptr, 0.6);
        cairo_set_line_width(cairo, 1);
        trace([&](double hz) { return CurveDb(points, hz); });
    }
    UseColour(area, cairo, "accent_color", 1);
    cairo_set_line_width(cairo, 3);
    trace([&](double hz) { return ToneDb(shown, std::min(hz, rateHz / 2), rateHz); });
}

void ToneCurve::Draw(cairo_t* cairo) {
    const Area plot = PlotArea();
    DrawGrid(cairo, plot);
    DrawCurve(cairo, plot);
    cairo_new_path(cairo);
    const bool isUsed = isDragged || gtk_widget_has_focus(area);
    for (const TonePoint& point : points) {
        const bool isChosen = isUsed && &point == &points.at(chosen);
        cairo_arc(cairo, plot.X(point.hz), plot.Y(point.db), kPointPixels + (isChosen ? 3 : 0), 0,
                  2 * std::numbers::pi);
        UseColour(area, cairo, isChosen ? "accent_color" : "window_bg_color", 1);
        cairo_fill_preserve(cairo);
        UseColour(area, cairo, nullptr, 1);
        cairo_set_line_width(cairo, 2);
        cairo_stroke(cairo);  // and forgets the circle
    }
    if (!isUsed) return;
    const TonePoint& point = points.at(chosen);
    UseColour(area, cairo, nullptr, 1);
    const bool isAbove = point.db < (kHighDb + kLowDb) / 2 + 6;
    Text(cairo, fmt::format("{}, {} dB", HzText(point.hz), SignedText(point.db)),
         std::clamp(plot.X(point.hz), plot.left + 50, plot.left + plot.width - 50),
         plot.Y(point.db) + (isAbove ? -24 : 24), 0.5);
}
