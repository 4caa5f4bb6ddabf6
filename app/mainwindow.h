// The updater's window: the console, the progress bar, the buttons and the status bar.
#ifndef HALCYRIX_APP_MAINWINDOW_H
#define HALCYRIX_APP_MAINWINDOW_H

#include <gtk/gtk.h>

// Builds the window and all that is in it; only the window itself is not shown yet.
GtkWidget* create_mainwindow();

#endif
