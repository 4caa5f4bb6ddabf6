// The crash reporter's window and what its buttons do.
#pragma once

#include <gtk/gtk.h>

// The crash address from the command line, "none" without one. Not parsed, never freed.
extern const char* gEIPaddress;
extern GtkWidget* bugwindow;

// Builds the window with all its widgets. The window itself and its Help button are not shown.
GtkWidget* create_bugwindow();

// Builds the window for an explanation of the report. It has no text, and nothing opens it.
GtkWidget* create_bughelp();
