// Building blocks of the windows, and the lookup of their widgets.
#pragma once

#include <gtk/gtk.h>

// The widget stored under `name` in the window that holds `widget`; null, with a warning, without
// one.
GtkWidget* lookup_widget(GtkWidget* widget, const char* name);

// Stores a new widget under `name` in its window, which holds a reference to it, shows it and
// returns it.
GtkWidget* named(GtkWidget* window, const char* name, GtkWidget* widget);

// Names a widget without a label to screen readers.
void name_for_readers(GtkWidget* widget, const char* name);

// The size of a text in the widget's font, in pixels.
GtkRequisition text_size(GtkWidget* widget, const char* text);

// The largest size of a window on this screen, without its frame.
GtkRequisition largest_window();

// Makes the program's fonts smaller, by the screen's resolution, until the window fits on the
// screen.
void fit_font(GtkWidget* window);

// A window that is stored in itself and not shown yet.
GtkWidget* new_window(const char* name, const char* title);

// These are stored and shown: a scrolled window with a vertical scroll bar alone, a text view that
// wraps at words and that the Tab key leaves, a row of spread buttons, a button in such a row.
GtkWidget* new_scrolled_window(GtkWidget* window, const char* name);
GtkWidget* new_text_view(GtkWidget* window, const char* name, GtkWidget* scrolledWindow);
GtkWidget* new_button_box(GtkWidget* window, const char* name);
GtkWidget* new_button(GtkWidget* window, const char* name, GtkWidget* box, const char* label);
