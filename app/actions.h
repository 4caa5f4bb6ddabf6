// What the buttons of the main window do.
#ifndef HALCYRIX_APP_ACTIONS_H
#define HALCYRIX_APP_ACTIONS_H

#include <gtk/gtk.h>

// Play: replaces the updater by the game; a message box when that fails.
void on_start_clicked(GtkButton* button, gpointer data);
// Help: opens the manual in the player's browser.
void on_help_clicked(GtkButton* button, gpointer data);
// Cancel, and closing the window: end the program.
void on_cancel_clicked(GtkButton* button, gpointer data);
gboolean on_cancel_event(GtkWidget* window, GdkEvent* event, gpointer data);

#endif
