// The updater's window: the console, the progress bar, the buttons and the status bar.
#ifndef HALCYRIX_APP_MAINWINDOW_H
#define HALCYRIX_APP_MAINWINDOW_H

#include <gtk/gtk.h>

// What the rest of the launcher works on. Owned by the window, which lasts as long as the program.
extern GtkWidget* console;       // the log, a text view
extern GtkWidget* progress1;     // the progress bar
extern GtkWidget* progress2;     // the status bar
extern GtkWidget* start_button;  // Play
extern GtkWidget* help_button;

// The status bar's messages of this context are the client's, one at a time.
constexpr guint kStatusContext = 1;

// Builds the window and all that is in it; only the window itself is not shown yet.
GtkWidget* create_mainwindow();

// Points the above at the widgets of the window.
void keep_widgets(GtkWidget* window);

#endif
