// orvane-desktop-window: the window of orvane-desktop. `orvane-desktop window` starts it, with the
// path of the program orvane-desktop and that of the running client's socket.
#include <fmt/core.h>

#include <string>

#include "desktop/window/link.h"
#include "desktop/window/widgets.h"

namespace {

constexpr char kId[] = "com.quenthra.Orvane";
// Without a frame drawn for so many readings of the levels, nobody sees the window.
constexpr int kUnseenReadings = 15;

class Window {
public:
    Window(AdwApplication* application, std::string clientProgram, const char* socketPath)
        : program(std::move(clientProgram)),
          link(socketPath),
          sound(&link, [this] { ShowPage("settings"); }),
          settings(&link),
          window(adw_application_window_new(GTK_APPLICATION(application))) {
        gtk_window_set_title(GTK_WINDOW(window), "Orvane");
        gtk_window_set_default_size(GTK_WINDOW(window), 680, 780);
        gtk_widget_set_size_request(window, 360, 294);
        MakeHeader();
        MakeOffPage();
        MakeActions();
        gtk_stack_set_transition_type(GTK_STACK(stack), GTK_STACK_TRANSITION_TYPE_SLIDE_LEFT_RIGHT);
        gtk_widget_set_vexpand(stack, true);
        gtk_stack_add_named(GTK_STACK(stack), off, "off");
        gtk_stack_add_named(GTK_STACK(stack), sound.Widget(), "sound");
        gtk_stack_add_named(GTK_STACK(stack), settings.Widget(), "settings");
        GtkWidget* const content = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
        gtk_box_append(GTK_BOX(content), header);
        gtk_box_append(GTK_BOX(content), stack);
        adw_toast_overlay_set_child(ADW_TOAST_OVERLAY(toasts), content);
        adw_application_window_set_content(ADW_APPLICATION_WINDOW(window), toasts);
        link.Listen([this] { Show(); }, [this] { ShowLevels(); },
                    [this](const std::string& why) { Toast(Sentence(why)); });
        Connect(window, "realize", [this] { WatchSurface(); });
        Connect(window, "map", [this] { SetSeen(true); });
        Connect(window, "unmap", [this] { SetSeen(false); });
        ShowPage("off");
        Show();
    }

    void Present() { gtk_window_present(GTK_WINDOW(window)); }

private:
    void MakeHeader() {
        adw_header_bar_set_title_widget(ADW_HEADER_BAR(header), title);
        gtk_actionable_set_action_name(GTK_ACTIONABLE(back), "win.back");
        gtk_widget_set_tooltip_text(back, "Back");
        SetName(back, "Back");
        adw_header_bar_pack_start(ADW_HEADER_BAR(header), back);
        GMenu* const menu = g_menu_new();
        g_menu_append(menu, "_Turn Off", "win.turn-off");
        g_menu_append(menu, "_About Orvane", "win.about");
        gtk_menu_button_set_icon_name(GTK_MENU_BUTTON(menuButton), "open-menu-symbolic");
        gtk_menu_button_set_menu_model(GTK_MENU_BUTTON(menuButton), G_MENU_MODEL(menu));
        gtk_menu_button_set_primary(GTK_MENU_BUTTON(menuButton), true);
        gtk_widget_set_tooltip_text(menuButton, "Main Menu");
        SetName(menuButton, "Main Menu");
        adw_header_bar_pack_end(ADW_HEADER_BAR(header), menuButton);
        g_object_unref(menu);
    }

    void MakeOffPage() {
        adw_status_page_set_icon_name(ADW_STATUS_PAGE(off), kId);
        gtk_widget_add_css_class(turnOn, "pill");
        gtk_widget_add_css_class(turnOn, "suggested-action");
        gtk_widget_set_halign(turnOn, GTK_ALIGN_CENTER);
        Connect(turnOn, "clicked", [this] { TurnOn(); });
        adw_status_page_set_child(ADW_STATUS_PAGE(off), turnOn);
        ShowOff("Orvane Is Off", "What this computer plays is heard as it is.");
    }

    void ShowOff(const char* what, const std::string& why) {
        adw_status_page_set_title(ADW_STATUS_PAGE(off), what);
        char* const text = g_markup_escape_text(why.c_str(), -1);
        adw_status_page_set_description(ADW_STATUS_PAGE(off), text);
        g_free(text);
    }

    void Add(const char* name, const char* keys, void (*act)(Window*)) {
        GSimpleAction* const action = g_simple_action_new(name, nullptr);
        Connect(action, "activate", [this, act] { act(this); });
        g_action_map_add_action(G_ACTION_MAP(window), G_ACTION(action));
        g_object_unref(action);
        char** const words = g_strsplit(keys, " ", 0);
        gtk_application_set_accels_for_action(gtk_window_get_application(GTK_WINDOW(window)),
                                              (std::string("win.") + name).c_str(), words);
        g_strfreev(words);
    }

    void MakeActions() {
        Add("back", "Escape <Alt>Left", [](Window* self) {
            if (self->link.IsConnected()) self->ShowPage("sound");
        });
        Add("close", "<Control>w <Control>q",
            [](Window* self) { gtk_window_close(GTK_WINDOW(self->window)); });
        Add("switch", "<Control>b", [](Window* self) { self->sound.Switch(); });
        Add("turn-off", "", [](Window* self) { self->link.Quit(); });
        Add("about", "", [](Window* self) {
            adw_show_about_window(GTK_WINDOW(self->window), "application-name", "Orvane",
                                  "application-icon", kId, "version", ORVANE_VERSION,
                                  "developer-name", "Quenthra Orvane project", nullptr);
        });
    }

    void ShowPage(const char* name) {
        const bool isSettings = std::string(name) == "settings";
        gtk_stack_set_visible_child_name(GTK_STACK(stack), name);
        gtk_widget_set_visible(back, isSettings);
        adw_window_title_set_title(ADW_WINDOW_TITLE(title), isSettings ? "All Settings" : "Orvane");
    }

    void Show() {
        const std::string shown = gtk_stack_get_visible_child_name(GTK_STACK(stack));
        if (!link.IsConnected() && shown != "off") {
            ShowOff("Orvane Is Off", "What this computer plays is heard as it is.");
            ShowPage("off");
        }
        if (link.IsConnected() && shown == "off") ShowPage("sound");
        g_simple_action_set_enabled(
            G_SIMPLE_ACTION(g_action_map_lookup_action(G_ACTION_MAP(window), "turn-off")),
            link.IsConnected());
        std::string output;
        for (const OutputView& one : link.Outputs())
            if (one.isPresent && link.IsConnected()) output = one.description;
        adw_window_title_set_subtitle(ADW_WINDOW_TITLE(title), output.c_str());
        sound.Show();
        settings.Show();
    }

    void ShowLevels() {
        sound.ShowLevels();
        gtk_widget_queue_draw(header);  // a frame is drawn if somebody can see it
        if (++unseenReadings > kUnseenReadings) link.Watch(false);
    }

    void Toast(const std::string& text) {
        AdwToast* const toast = adw_toast_new("");
        char* const safe = g_markup_escape_text(text.c_str(), -1);
        adw_toast_set_title(toast, safe);
        g_free(safe);
        adw_toast_overlay_add_toast(ADW_TOAST_OVERLAY(toasts), toast);
    }

    // A window is seen as long as it is mapped, not minimised, and the desktop wants its frames.
    void WatchSurface() {
        GdkSurface* const surface = gtk_native_get_surface(GTK_NATIVE(window));
        Connect(surface, "notify::state", [this, surface] {
            const GdkToplevelState state = gdk_toplevel_get_state(GDK_TOPLEVEL(surface));
            SetSeen((state & GDK_TOPLEVEL_STATE_MINIMIZED) == 0);
        });
        Connect(gdk_surface_get_frame_clock(surface), "after-paint", [this] {
            unseenReadings = 0;
            if (isSeen) link.Watch(true);
        });
    }
    void SetSeen(bool wanted) {
        isSeen = wanted;
        unseenReadings = 0;
        link.Watch(wanted);
    }

    // Runs `orvane-desktop on` and shows its message if it fails.
    void TurnOn() {
        gtk_widget_set_sensitive(turnOn, false);
        GError* fault = nullptr;
        GSubprocess* const process = g_subprocess_new(G_SUBPROCESS_FLAGS_STDERR_PIPE, &fault,
                                                      program.c_str(), "on", nullptr);
        if (process == nullptr) {
            TurnedOn(fault->message);
            g_clear_error(&fault);
            return;
        }
        g_subprocess_communicate_utf8_async(
            process, nullptr, nullptr,
            [](GObject* ended, GAsyncResult* result, gpointer self) {
                char* text = nullptr;
                g_subprocess_communicate_utf8_finish(G_SUBPROCESS(ended), result, nullptr, &text,
                                                     nullptr);
                const bool worked = g_subprocess_get_successful(G_SUBPROCESS(ended));
                static_cast<Window*>(self)->TurnedOn(worked || text == nullptr ? "" : text);
                g_free(text);
            },
            this);
        g_object_unref(process);
    }
    void TurnedOn(std::string fault) {
        gtk_widget_set_sensitive(turnOn, true);
        if (fault.empty()) return;
        if (const size_t colon = fault.find(": "); colon != std::string::npos)
            fault.erase(0, colon + 2);
        if (fault.ends_with('\n')) fault.pop_back();
        ShowOff("Orvane Can't Be Turned On", Sentence(fault));
    }

    std::string program;
    Link link;
    SoundPage sound;
    SettingsPage settings;
    GtkWidget* window;
    GtkWidget* header = adw_header_bar_new();
    GtkWidget* title = adw_window_title_new("Orvane", "");
    GtkWidget* back = gtk_button_new_from_icon_name("go-previous-symbolic");
    GtkWidget* menuButton = gtk_menu_button_new();
    GtkWidget* stack = gtk_stack_new();
    GtkWidget* off = adw_status_page_new();
    GtkWidget* turnOn = gtk_button_new_with_label("Turn On");
    GtkWidget* toasts = adw_toast_overlay_new();
    bool isSeen = false;
    int unseenReadings = 0;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fmt::print(stderr, "orvane-desktop-window: `orvane-desktop window` starts it\n");
        return 2;
    }
    const Object<AdwApplication> application(adw_application_new(kId, G_APPLICATION_DEFAULT_FLAGS));
    std::unique_ptr<Window> window;
    Connect(application.get(), "activate", [&] {
        if (!window) window = std::make_unique<Window>(application.get(), argv[1], argv[2]);
        window->Present();
    });
    return g_application_run(G_APPLICATION(application.get()), 1, argv);
}
