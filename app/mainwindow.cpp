#include "app/mainwindow.h"

#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>
#include <string>

#include "app/browser.h"
#include "app/message_box.h"
#include "app/programs.h"
#include "app/widgets.h"
#include "app/window_events.h"

namespace {

constexpr int kConsoleHeight = 300;
constexpr int kButtonBoxPadding = 3;
constexpr int kResizeGrip = 18;  // the status bar asks for it only once it has a size

// The longest status without a file name.
constexpr char kLongestStatus[] = "Waiting; #1000/1000 in queue, approx. 00:00:00 remaining";

// Replaces the updater by the game. The game's own libraries go before the system's.
void on_start_clicked(GtkButton*, gpointer) {
    constexpr char kLibraryPath[] = "LD_LIBRARY_PATH";
    chmod("halcyrix", kProgramMode);
    const char* before = getenv(kLibraryPath);
    std::string path = "./drivers:.";
    if (before != nullptr) path += std::string(":") + before;
    setenv(kLibraryPath, path.c_str(), 1);
    become("./halcyrix", {"halcyrix"});
    message_box("Failed to start halcyrix!\n\nPlease check ~/.halcyrix/halcyrix", "Fatal error");
}

void on_help_clicked(GtkButton*, gpointer) { open_manual(); }

void on_cancel_clicked(GtkButton*, gpointer) { request_quit(); }

gboolean on_cancel_event(GtkWidget*, GdkEvent*, gpointer) {
    request_quit();
    return FALSE;
}

// The status may need more room than everything else, and the status bar asks for none.
void fit_status(GtkWidget* window, GtkWidget* status) {
    GtkRequisition frame;
    gtk_widget_size_request(status, &frame);
    const int width = text_size(status, kLongestStatus).width + frame.width + kResizeGrip;
    gtk_window_set_default_size(GTK_WINDOW(window), std::min(width, largest_window().width), -1);
}

}  // namespace

GtkWidget* console = nullptr;
GtkWidget* progress1 = nullptr;
GtkWidget* progress2 = nullptr;
GtkWidget* start_button = nullptr;
GtkWidget* help_button = nullptr;

GtkWidget* create_mainwindow() {
    GtkWidget* window = new_window("mainwindow", "Halcyrix Update Utility");
    GtkWidget* vbox = named(window, "vbox1", gtk_vbox_new(FALSE, 0));
    gtk_container_add(GTK_CONTAINER(window), vbox);

    GtkWidget* scrolled = new_scrolled_window(window, "scrolledwindow1");
    gtk_box_pack_start(GTK_BOX(vbox), scrolled, TRUE, TRUE, 0);
    gtk_widget_set_size_request(scrolled, -1, kConsoleHeight);
    GtkWidget* view = new_text_view(window, "console", scrolled);
    gtk_text_view_set_editable(GTK_TEXT_VIEW(view), FALSE);
    gtk_text_view_set_cursor_visible(GTK_TEXT_VIEW(view), FALSE);  // so keys scroll
    name_for_readers(view, "Messages of the update");

    GtkWidget* progress = named(window, "progressbar1", gtk_progress_bar_new());
    gtk_box_pack_start(GTK_BOX(vbox), progress, FALSE, FALSE, 0);
    gtk_progress_bar_set_text(GTK_PROGRESS_BAR(progress), "Loading...");
    name_for_readers(progress, "Progress of the update");

    GtkWidget* buttons = new_button_box(window, "hbuttonbox1");
    gtk_box_pack_start(GTK_BOX(vbox), buttons, FALSE, TRUE, kButtonBoxPadding);
    GtkWidget* start = new_button(window, "start_button", buttons, "Play Halcyrix");
    gtk_widget_set_sensitive(start, FALSE);
    GtkWidget* help = new_button(window, "help_button", buttons, "Help");
    gtk_widget_set_sensitive(help, FALSE);
    GtkWidget* cancel = new_button(window, "cancel_button", buttons, "Cancel");

    GtkWidget* status = named(window, "statusbar1", gtk_statusbar_new());
    gtk_box_pack_start(GTK_BOX(vbox), status, FALSE, FALSE, 0);
    fit_font(window);
    fit_status(window, status);

    g_signal_connect(window, "delete_event", G_CALLBACK(on_cancel_event), nullptr);
    g_signal_connect(start, "clicked", G_CALLBACK(on_start_clicked), nullptr);
    g_signal_connect(help, "clicked", G_CALLBACK(on_help_clicked), nullptr);
    g_signal_connect(cancel, "clicked", G_CALLBACK(on_cancel_clicked), nullptr);
    return window;
}

void keep_widgets(GtkWidget* window) {
    console = lookup_widget(window, "console");
    progress1 = lookup_widget(window, "progressbar1");
    progress2 = lookup_widget(window, "statusbar1");
    start_button = lookup_widget(window, "start_button");
    help_button = lookup_widget(window, "help_button");
}
