// Looks at the windows of the test's own process.
#ifndef HALCYRIX_TESTS_SUPPORT_GTK_WINDOWS_H
#define HALCYRIX_TESTS_SUPPORT_GTK_WINDOWS_H

#include <gtk/gtk.h>

#include <string>

// From now on a warning of GTK is a failure of the running test.
void FailOnWarnings();

void ProcessEvents();

// The window with this title, null when there is none; closing it as its frame would.
GtkWidget* FindWindow(const std::string& title);
void CloseWindow(GtkWidget* window);

// The first of its kind inside a container.
GtkButton* FindButton(GtkWidget* container);
std::string LabelText(GtkWidget* container);

std::string TextOf(GtkWidget* textView);

#endif
