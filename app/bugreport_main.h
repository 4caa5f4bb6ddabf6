// The crash reporter, from GTK's start to its end.
#ifndef HALCYRIX_APP_BUGREPORT_MAIN_H
#define HALCYRIX_APP_BUGREPORT_MAIN_H

#include <gtk/gtk.h>

// The crash address as the command line gave it, "none" without one. Not parsed, never freed.
extern const char* gEIPaddress;
// Null before it is built and again once it is destroyed.
extern GtkWidget* bugwindow;

// Shows the bug report window and runs until the player submits or closes it. Returns the exit
// status of the program, which is 0. Neither a log nor the home directory is set up.
int bugreport_main(int argc, char** argv);

// Submit: sends the report, which blocks, and ends the program whatever came of it.
void on_bug_submit_clicked(GtkButton* button, gpointer data);
void on_bug_help_clicked(GtkButton* button, gpointer data);
// Cancel, and closing the window: end the program.
void on_bug_cancel_clicked(GtkButton* button, gpointer data);
gboolean on_bugwindow_delete_event(GtkWidget* window, GdkEvent* event, gpointer data);

gboolean on_bughelp_delete_event(GtkWidget* window, GdkEvent* event, gpointer data);

#endif
