#include "tests/support/gtk_windows.h"

#include <gtest/gtest.h>

namespace {

void Fail(const gchar*, GLogLevelFlags level, const gchar* text, gpointer) {
    if (level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_WARNING)) {
        ADD_FAILURE() << text;
    }
}

GtkWidget* FindInside(GtkWidget* widget, GType type) {
    if (G_TYPE_CHECK_INSTANCE_TYPE(widget, type)) return widget;
    if (!GTK_IS_CONTAINER(widget)) return nullptr;
    GtkWidget* found = nullptr;
    GList* children = gtk_container_get_children(GTK_CONTAINER(widget));
    for (GList* child = children; child != nullptr && found == nullptr; child = child->next) {
        found = FindInside(static_cast<GtkWidget*>(child->data), type);
    }
    g_list_free(children);
    return found;
}

}  // namespace

void FailOnWarnings() {
    g_log_set_default_handler(Fail, nullptr);
}

void ProcessEvents() {
    while (gtk_events_pending()) gtk_main_iteration();
}

GtkWidget* FindWindow(const std::string& title) {
    GtkWidget* found = nullptr;
    GList* windows = gtk_window_list_toplevels();
    for (GList* window = windows; window != nullptr; window = window->next) {
        const char* its = gtk_window_get_title(GTK_WINDOW(window->data));
        if (its != nullptr && its == title) found = static_cast<GtkWidget*>(window->data);
    }
    g_list_free(windows);
    return found;
}

void CloseWindow(GtkWidget* window) {
    GdkEvent* event = gdk_event_new(GDK_DELETE);
    event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window)));
    gtk_main_do_event(event);
    gdk_event_free(event);
}

GtkButton* FindButton(GtkWidget* container) {
    return GTK_BUTTON(FindInside(container, GTK_TYPE_BUTTON));
}

std::string LabelText(GtkWidget* container) {
    return gtk_label_get_text(GTK_LABEL(FindInside(container, GTK_TYPE_LABEL)));
}

std::string TextOf(GtkWidget* textView) {
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(textView));
    GtkTextIter start, end;
    gtk_text_buffer_get_bounds(buffer, &start, &end);
    gchar* text = gtk_text_buffer_get_text(buffer, &start, &end, TRUE);
    const std::string copy = text;
    g_free(text);
    return copy;
}
