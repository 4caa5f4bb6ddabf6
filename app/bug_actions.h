// What the bug report window works with, and what its buttons do.
#ifndef HALCYRIX_APP_BUG_ACTIONS_H
#define HALCYRIX_APP_BUG_ACTIONS_H

#include <gtk/gtk.h>

// The crash address as the command line gave it, "none" without one. Not parsed, never freed.
extern const char* gEIPaddress;
extern GtkWidget* bugwindow;

// Submit: sends the report, which blocks, and ends the program whatever came of it.
void on_bug_submit_clicked(GtkButton* button, gpointer data);
void on_bug_help_clicked(GtkButton* button, gpointer data);
// Cancel, and closing the window: end the program.
void on_bug_cancel_clicked(GtkButton* button, gpointer data);
gboolean on_bugwindow_delete_event(GtkWidget* window, GdkEvent* event, gpointer data);

gboolean on_bughelp_delete_event(GtkWidget* window, GdkEvent* event, gpointer data);

#endif
