// Helpers that the windows are built and used with.
#ifndef HALCYRIX_APP_SUPPORT_H
#define HALCYRIX_APP_SUPPORT_H

#include <gtk/gtk.h>

// Shows a text with a Close button in a dialog of its own and returns at once. The dialog is not
// modal and goes when the player closes it. Any bytes may be in the text.
void message_box(const char* text, const char* title);

// The widget stored under `name` in the window that holds `widget`. Null, with a warning, when
// there is none.
GtkWidget* lookup_widget(GtkWidget* widget, const char* name);

// Stores a widget under `name` in its window, which holds a reference to it until it is gone. A
// window stored in itself is not referenced.
void store_widget(GtkWidget* window, const char* name, GtkWidget* widget);

// Stores and shows a new widget; returns it.
GtkWidget* named(GtkWidget* window, const char* name, GtkWidget* widget);

// Names a widget, which shows no label of its own, to screen readers.
void name_for_readers(GtkWidget* widget, const char* name);

// Parts that both windows have, stored and shown: a scrolled window with a vertical scroll bar
// alone, a text view that wraps at words and that the Tab key leaves, a row of spread buttons, a
// button in such a row.
GtkWidget* new_scrolled_window(GtkWidget* window, const char* name);
GtkWidget* new_text_view(GtkWidget* window, const char* name, GtkWidget* scrolledWindow);
GtkWidget* new_button_box(GtkWidget* window, const char* name);
GtkWidget* new_button(GtkWidget* window, const char* name, GtkWidget* box, const char* label);

#endif
