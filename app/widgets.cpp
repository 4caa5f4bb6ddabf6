#include "app/widgets.h"

#include "app/support.h"

GtkWidget* console = nullptr;
GtkWidget* progress1 = nullptr;
GtkWidget* progress2 = nullptr;
GtkWidget* start_button = nullptr;
GtkWidget* help_button = nullptr;

void keep_widget(GtkWidget*& global, GtkWidget* widget) {
    global = widget;
    g_signal_connect(widget, "destroy", G_CALLBACK(gtk_widget_destroyed), &global);
}

void keep_mainwindow_widgets(GtkWidget* window) {
    keep_widget(console, lookup_widget(window, "console"));
    keep_widget(progress1, lookup_widget(window, "progressbar1"));
    keep_widget(progress2, lookup_widget(window, "statusbar1"));
    keep_widget(start_button, lookup_widget(window, "start_button"));
    keep_widget(help_button, lookup_widget(window, "help_button"));
}
