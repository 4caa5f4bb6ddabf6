// Finds windows and widgets of the test's own process.
#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <string>

inline void ProcessEvents() {
    while (gtk_events_pending()) gtk_main_iteration();
}

using WidgetList = std::unique_ptr<GList, decltype(&g_list_free)>;

// The window with this title, or null.
inline GtkWidget* FindWindow(const std::string& title) {
    const WidgetList windows(gtk_window_list_toplevels(), g_list_free);
    for (GList* window = windows.get(); window != nullptr; window = window->next) {
        const char* its = gtk_window_get_title(GTK_WINDOW(window->data));
        if (its != nullptr && its == title) return GTK_WIDGET(window->data);
    }
    return nullptr;
}

// The first widget of this type inside another, which it may be itself.
inline GtkWidget* FindInside(GtkWidget* widget, GType type) {
    if (G_TYPE_CHECK_INSTANCE_TYPE(widget, type)) return widget;
    if (!GTK_IS_CONTAINER(widget)) return nullptr;
    const WidgetList children(gtk_container_get_children(GTK_CONTAINER(widget)), g_list_free);
    for (GList* child = children.get(); child != nullptr; child = child->next) {
        if (GtkWidget* found = FindInside(GTK_WIDGET(child->data), type)) return found;
    }
    return nullptr;
}
inline std::string LabelText(GtkWidget* container) {
    return gtk_label_get_text(GTK_LABEL(FindInside(container, GTK_TYPE_LABEL)));
}

inline std::string TextOf(GtkWidget* textView) {
    gchar* text;
    g_object_get(gtk_text_view_get_buffer(GTK_TEXT_VIEW(textView)), "text", &text, nullptr);
    return std::unique_ptr<gchar, decltype(&g_free)>(text, g_free).get();
}
