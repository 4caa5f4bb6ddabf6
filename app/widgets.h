// The widgets of the main window that the rest of the launcher works on.
#ifndef HALCYRIX_APP_WIDGETS_H
#define HALCYRIX_APP_WIDGETS_H

#include <gtk/gtk.h>

// Owned by the window. Null before it is built and again once they are destroyed, which the player
// can do in the middle of a session by closing the window: test before each use.
extern GtkWidget* console;       // the log, a text view
extern GtkWidget* progress1;     // the progress bar
extern GtkWidget* progress2;     // the status bar
extern GtkWidget* start_button;  // Play
extern GtkWidget* help_button;

// Makes `global` point at the widget for as long as that exists.
void keep_widget(GtkWidget*& global, GtkWidget* widget);

// Points all of the above at the widgets of the main window.
void keep_mainwindow_widgets(GtkWidget* window);

#endif
