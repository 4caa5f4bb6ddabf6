// What the windows are built from, and how a widget is found in them.
#ifndef HALCYRIX_APP_WIDGETS_H
#define HALCYRIX_APP_WIDGETS_H

#include <gtk/gtk.h>

// The widget stored under `name` in the window that holds `widget`. Null, with a warning, when
// there is none.
GtkWidget* lookup_widget(GtkWidget* widget, const char* name);

// Stores a new widget under `name` in its window, which holds a reference to it until it is gone,
// and shows it; returns it.
GtkWidget* named(GtkWidget* window, const char* name, GtkWidget* widget);

// Names a widget, which shows no label of its own, to screen readers.
void name_for_readers(GtkWidget* widget, const char* name);

// How much room a text takes in the widget's font, in pixels.
GtkRequisition text_size(GtkWidget* widget, const char* text);

// A window that is stored in itself and not shown yet.
GtkWidget* new_window(const char* name, const char* title);

// Parts of windows, stored and shown: a scrolled window with a vertical scroll bar alone, a text
// view that wraps at words and that the Tab key leaves, a row of spread buttons, a button in such a
// row.
GtkWidget* new_scrolled_window(GtkWidget* window, const char* name);
GtkWidget* new_text_view(GtkWidget* window, const char* name, GtkWidget* scrolledWindow);
GtkWidget* new_button_box(GtkWidget* window, const char* name);
GtkWidget* new_button(GtkWidget* window, const char* name, GtkWidget* box, const char* label);

#endif
