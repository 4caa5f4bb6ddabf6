// The bug report window.
#ifndef HALCYRIX_APP_BUGWINDOW_H
#define HALCYRIX_APP_BUGWINDOW_H

#include <gtk/gtk.h>

// Builds the window and all that is in it; only the window itself and its Help button are not
// shown.
GtkWidget* create_bugwindow();

// Builds the window that is to explain the report. It has no text yet, and nothing opens it.
GtkWidget* create_bughelp();

#endif
