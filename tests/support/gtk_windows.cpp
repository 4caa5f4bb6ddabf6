#include "tests/support/gtk_windows.h"

#include <gtest/gtest.h>

#include "app/support.h"

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

std::string NameOf(GtkWidget* window, GtkWidget* widget) {
    for (const char* name : {"mainwindow", "vbox1", "scrolledwindow1", "hbuttonbox1"}) {
        if (g_object_get_data(G_OBJECT(window), name) == widget) return name;
    }
    return "?";
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

std::string Describe(GtkWidget* window, const char* name) {
    GtkWidget* widget = lookup_widget(window, name);
    if (widget == nullptr) return "missing";
    std::string text = G_OBJECT_TYPE_NAME(widget);
    GtkWidget* parent = gtk_widget_get_parent(widget);
    if (parent != nullptr) text += " in " + NameOf(window, parent);
    if (parent != nullptr && GTK_IS_BOX(parent) && !GTK_IS_BUTTON_BOX(parent)) {
        gboolean expand, fill;
        guint padding;
        GtkPackType from;
        gtk_box_query_child_packing(GTK_BOX(parent), widget, &expand, &fill, &padding, &from);
        text += std::string(", ") + (expand ? "expand " : "- ") + (fill ? "fill " : "- ") +
                std::to_string(padding);
    }
    if (GTK_IS_BOX(widget)) {
        text += ", spacing " + std::to_string(gtk_box_get_spacing(GTK_BOX(widget)));
        if (gtk_box_get_homogeneous(GTK_BOX(widget))) text += ", homogeneous";
    }
    if (GTK_IS_SCROLLED_WINDOW(widget) && !gtk_widget_get_can_focus(widget)) text += ", no focus";
    if (gtk_widget_get_can_default(widget)) text += ", default";
    if (!gtk_widget_get_sensitive(widget)) text += ", insensitive";
    if (!gtk_widget_get_visible(widget)) text += ", hidden";
    if (GTK_IS_BUTTON(widget)) {
        text += std::string(": ") + gtk_button_get_label(GTK_BUTTON(widget));
        EXPECT_TRUE(gtk_button_get_use_underline(GTK_BUTTON(widget)));
    }
    return text;
}

void ExpectVerticalBarAlone(GtkWidget* scrolledWindow) {
    GtkPolicyType horizontal, vertical;
    GtkScrolledWindow* window = GTK_SCROLLED_WINDOW(scrolledWindow);
    gtk_scrolled_window_get_policy(window, &horizontal, &vertical);
    EXPECT_EQ(horizontal, GTK_POLICY_NEVER);
    EXPECT_EQ(vertical, GTK_POLICY_ALWAYS);
    EXPECT_EQ(gtk_scrolled_window_get_shadow_type(window), GTK_SHADOW_IN);
}
