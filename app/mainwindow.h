// The updater's window and what its buttons do.
#pragma once

#include <gtk/gtk.h>

// Widgets that the rest of the updater uses, owned by the window.
extern GtkWidget* console;       // the log, a text view
extern GtkWidget* progress1;     // the progress bar
extern GtkWidget* progress2;     // the status bar
extern GtkWidget* start_button;  // Play
extern GtkWidget* help_button;

// The context of the status bar's one message.
constexpr guint kStatusContext = 1;

// Builds the window with all its widgets. The window itself is not shown.
GtkWidget* create_mainwindow();

// Sets the variables above to the widgets of the window.
void keep_widgets(GtkWidget* window);
