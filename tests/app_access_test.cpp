// The windows for those who use the keyboard alone, a large font, or a screen reader.
#include <gtest/gtest.h>

#include <functional>
#include <utility>
#include <vector>

#include "app/actions.h"
#include "app/bugreport_main.h"
#include "app/bugwindow.h"
#include "app/mainwindow.h"
#include "app/support.h"
#include "app/updater.h"
#include "app/widgets.h"
#include "tests/support/gtk_windows.h"
#include "tests/support/programs.h"
#include "tests/support/x_server.h"

// Last: its macros are common words.
#include <gdk/gdkx.h>

namespace {

// A window that is on the display, gone with the object.
class Shown {
public:
    explicit Shown(GtkWidget* window) : m_window(window) {
        gtk_widget_show(window);
        ProcessEvents();
    }
    ~Shown() {
        gtk_widget_destroy(m_window);
        ProcessEvents();
    }
    Shown(const Shown&) = delete;
    Shown& operator=(const Shown&) = delete;

    GtkWidget* Window() const { return m_window; }
    GtkWidget* Named(const char* name) const { return lookup_widget(m_window, name); }

    // The focused one of these widgets.
    std::string Focus(const std::vector<const char*>& names) const {
        for (const char* name : names) {
            if (gtk_window_get_focus(GTK_WINDOW(m_window)) == Named(name)) return name;
        }
        return "something else";
    }

private:
    GtkWidget* m_window;
};

// Strikes keys of the display's keyboard, one after the other, and lets the windows have them.
void Strike(const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        ASSERT_EQ(RunProgram({"/usr/bin/xdotool", "key", key}, nullptr), 0);
        gdk_display_sync(gdk_display_get_default());  // what was struck has arrived
        ProcessEvents();
    }
}

// Gives the keyboard to the window, as a window manager does.
void TakeKeyboard(GtkWidget* window) {
    XSetInputFocus(GDK_DISPLAY_XDISPLAY(gdk_display_get_default()),
                   GDK_WINDOW_XID(gtk_widget_get_window(window)), RevertToParent, CurrentTime);
    while (!gtk_window_has_toplevel_focus(GTK_WINDOW(window))) gtk_main_iteration();
}

// Counts the clicks of a button in the place of what it does.
class Clicks {
public:
    Clicks(GtkWidget* button, GCallback handler) : m_button(button) {
        g_signal_handlers_disconnect_by_func(button, reinterpret_cast<gpointer>(handler), nullptr);
        g_signal_connect_swapped(button, "clicked", G_CALLBACK(+[](int* clicks) { ++*clicks; }),
                                 &count);
    }
    ~Clicks() { g_signal_handlers_disconnect_by_data(m_button, &count); }
    Clicks(const Clicks&) = delete;
    Clicks& operator=(const Clicks&) = delete;

    int count = 0;

private:
    GtkWidget* m_button;
};

TEST(Keyboard, ReachesEverythingInTheMainWindow) {
    const Shown shown(create_mainwindow());
    TakeKeyboard(shown.Window());
    const std::vector<const char*> names = {"console", "start_button", "help_button",
                                            "cancel_button"};
    EXPECT_EQ(shown.Focus(names), "console");
    Strike({"Tab"});
    EXPECT_EQ(shown.Focus(names), "cancel_button") << "the only button of a running update";
    for (const char* button : {"start_button", "help_button"}) {
        gtk_widget_set_sensitive(shown.Named(button), TRUE);
    }
    Strike({"Tab"});
    const std::pair<const char*, GCallback> buttons[] = {
        {"start_button", G_CALLBACK(on_start_clicked)},
        {"help_button", G_CALLBACK(on_help_clicked)},
        {"cancel_button", G_CALLBACK(on_cancel_clicked)},
    };
    for (const auto& [name, handler] : buttons) {
        const Clicks clicks(shown.Named(name), handler);
        Strike({"Tab"});
        EXPECT_EQ(shown.Focus(names), name);
        Strike({"space", "Return"});
        while (clicks.count < 2) gtk_main_iteration();
    }
    Strike({"shift+Tab"});
    EXPECT_EQ(shown.Focus(names), "help_button");
}

TEST(Keyboard, FillsInAndSendsTheBugReport) {
    const Shown shown(create_bugwindow());
    const Clicks submit(shown.Named("bug_submit"), G_CALLBACK(on_bug_submit_clicked));
    const Clicks cancel(shown.Named("bug_cancel"), G_CALLBACK(on_bug_cancel_clicked));
    TakeKeyboard(shown.Window());
    Strike({"a", "Tab", "b", "Return", "Tab", "space", "Tab", "space"});
    while (submit.count + cancel.count < 2) gtk_main_iteration();
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(shown.Named("username_entry"))), "a");
    EXPECT_EQ(TextOf(shown.Named("bug_entry")), "b\n");
    EXPECT_EQ(submit.count, 1);
    EXPECT_EQ(cancel.count, 1);
}

TEST(Keyboard, ClosesAMessage) {
    for (const char* key : {"Escape", "space", "Return"}) {
        message_box("text", "Message");
        ProcessEvents();
        GtkWidget* box = FindWindow("Message");
        TakeKeyboard(box);
        Strike({key});
        while (FindWindow("Message") != nullptr) gtk_main_iteration();
    }
}

// Calls back for every label inside.
void ForEachLabel(GtkWidget* widget, const std::function<void(GtkLabel*)>& look) {
    if (GTK_IS_LABEL(widget) && gtk_widget_get_mapped(widget)) look(GTK_LABEL(widget));
    if (!GTK_IS_CONTAINER(widget)) return;
    GList* children = gtk_container_get_children(GTK_CONTAINER(widget));
    for (GList* child = children; child != nullptr; child = child->next) {
        ForEachLabel(static_cast<GtkWidget*>(child->data), look);
    }
    g_list_free(children);
}

void ExpectWholeTexts(GtkWidget* window) {
    int width, height;
    gtk_window_get_size(GTK_WINDOW(window), &width, &height);
    EXPECT_LE(width, 1024);
    EXPECT_LE(height, 768 - 40) << "with a title bar";
    ForEachLabel(window, [](GtkLabel* label) {
        EXPECT_FALSE(pango_layout_is_ellipsized(gtk_label_get_layout(label)))
            << gtk_label_get_text(label);
        GtkAllocation given;
        gtk_widget_get_allocation(GTK_WIDGET(label), &given);
        int needed;
        pango_layout_get_pixel_size(gtk_label_get_layout(label), &needed, nullptr);
        EXPECT_GE(given.width, needed) << gtk_label_get_text(label);
    });
}

TEST(DefaultSize, ShowsAllTextsAlsoInALargeFont) {
    for (const char* font : {"DejaVu Sans 8", "DejaVu Sans 10", "DejaVu Sans 18"}) {
        SCOPED_TRACE(font);
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
        {
            const Shown shown(create_mainwindow());
            keep_mainwindow_widgets(shown.Window());
            _Log log;
            gtk_statusbar_push(GTK_STATUSBAR(progress2), kStatusContext, "Initializing...");
            ExpectWholeTexts(shown.Window());
            for (const char* status : {"Waiting; #100/250 in queue, approx. 02:46:40 remaining",
                                       "Connecting to update1.halcyrix.example:21024...",
                                       "Version is current; verifying files..."}) {
                log.SetStatus(status);
                ProcessEvents();
                ExpectWholeTexts(shown.Window());
            }
        }
        const Shown bug(create_bugwindow());
        ExpectWholeTexts(bug.Window());
        GdkRectangle page;
        gtk_text_view_get_visible_rect(GTK_TEXT_VIEW(bug.Named("bug_entry")), &page);
        PangoLayout* line = gtk_widget_create_pango_layout(bug.Named("bug_entry"), "X");
        int lineHeight;
        pango_layout_get_pixel_size(line, nullptr, &lineHeight);
        g_object_unref(line);
        EXPECT_GE(page.height, 5 * lineHeight) << "room for a description";
    }
    g_object_set(gtk_settings_get_default(), "gtk-font-name", "DejaVu Sans 10", nullptr);
}

TEST(ScreenReaders, AreToldWhatEachWidgetIs) {
    const Shown mainWindow(create_mainwindow());
    const Shown bug(create_bugwindow());
    const std::pair<GtkWidget*, const char*> named[] = {
        {mainWindow.Named("console"), "Messages of the update"},
        {mainWindow.Named("progressbar1"), "Progress of the update"},
        {bug.Named("bug_entry"), "What happened before the crash"},
    };
    for (const auto& [widget, name] : named) {
        EXPECT_STREQ(atk_object_get_name(gtk_widget_get_accessible(widget)), name);
    }
    EXPECT_EQ(gtk_label_get_mnemonic_widget(GTK_LABEL(bug.Named("label2"))),
              bug.Named("username_entry"));
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const XServer server;
    if (!server.Running()) return kSkipped;
    gtk_init(&argc, &argv);
    FailOnWarnings();
    return RUN_ALL_TESTS();
}
