#include "app/mainwindow.h"

#include "app/actions.h"
#include "app/support.h"

namespace {

constexpr int kConsoleHeight = 300;
constexpr int kButtonBoxPadding = 3;

}  // namespace

GtkWidget* create_mainwindow() {
    GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    store_widget(window, "mainwindow", window);
    gtk_window_set_title(GTK_WINDOW(window), "Halcyrix Update Utility");

    GtkWidget* vbox = named(window, "vbox1", gtk_vbox_new(FALSE, 0));
    gtk_container_add(GTK_CONTAINER(window), vbox);

    GtkWidget* scrolled = new_scrolled_window(window, "scrolledwindow1");
    gtk_box_pack_start(GTK_BOX(vbox), scrolled, TRUE, TRUE, 0);
    gtk_widget_set_size_request(scrolled, -1, kConsoleHeight);
    GtkWidget* view = new_text_view(window, "console", scrolled);
    gtk_text_view_set_editable(GTK_TEXT_VIEW(view), FALSE);

    GtkWidget* progress = named(window, "progressbar1", gtk_progress_bar_new());
    gtk_box_pack_start(GTK_BOX(vbox), progress, FALSE, FALSE, 0);
    gtk_progress_bar_set_text(GTK_PROGRESS_BAR(progress), "Loading...");

    GtkWidget* buttons = new_button_box(window, "hbuttonbox1");
    gtk_box_pack_start(GTK_BOX(vbox), buttons, FALSE, TRUE, kButtonBoxPadding);
    GtkWidget* start = new_button(window, "start_button", buttons, "Play Halcyrix");
    gtk_widget_set_sensitive(start, FALSE);
    GtkWidget* help = new_button(window, "help_button", buttons, "Help");
    gtk_widget_set_sensitive(help, FALSE);
    GtkWidget* cancel = new_button(window, "cancel_button", buttons, "Cancel");

    GtkWidget* status = named(window, "statusbar1", gtk_statusbar_new());
    gtk_box_pack_start(GTK_BOX(vbox), status, FALSE, FALSE, 0);

    g_signal_connect(window, "delete_event", G_CALLBACK(on_cancel_event), nullptr);
    g_signal_connect(start, "clicked", G_CALLBACK(on_start_clicked), nullptr);
    g_signal_connect(help, "clicked", G_CALLBACK(on_help_clicked), nullptr);
    g_signal_connect(cancel, "clicked", G_CALLBACK(on_cancel_clicked), nullptr);
    return window;
}
