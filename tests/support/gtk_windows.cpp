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

// The settings that the kind of the widget has.
std::string Settings(GtkWidget* widget) {
    std::string text;
    if (GTK_IS_BOX(widget)) {
        text += ", spacing " + std::to_string(gtk_box_get_spacing(GTK_BOX(widget)));
        if (gtk_box_get_homogeneous(GTK_BOX(widget))) text += ", homogeneous";
    }
    if (GTK_IS_BUTTON_BOX(widget) &&
        gtk_button_box_get_layout(GTK_BUTTON_BOX(widget)) == GTK_BUTTONBOX_SPREAD) {
        text += ", spread";
    }
    if (GTK_IS_TEXT_VIEW(widget)) {
        GtkTextView* view = GTK_TEXT_VIEW(widget);
        if (gtk_text_view_get_editable(view)) text += ", editable";
        if (gtk_text_view_get_wrap_mode(view) == GTK_WRAP_WORD) text += ", wraps";
    }
    if (GTK_IS_SCROLLED_WINDOW(widget)) {
        GtkScrolledWindow* window = GTK_SCROLLED_WINDOW(widget);
        GtkPolicyType horizontal, vertical;
        gtk_scrolled_window_get_policy(window, &horizontal, &vertical);
        if (horizontal == GTK_POLICY_NEVER && vertical == GTK_POLICY_ALWAYS) text += ", vertical";
        EXPECT_EQ(gtk_scrolled_window_get_shadow_type(window), GTK_SHADOW_IN);
        EXPECT_FALSE(gtk_widget_get_can_focus(widget));
    }
    if (GTK_IS_LABEL(widget)) {
        int x, y;
        gtk_misc_get_padding(GTK_MISC(widget), &x, &y);
        text += ", " + std::to_string(x) + "x" + std::to_string(y);
    }
    if (gtk_widget_get_can_default(widget)) text += ", default";
    if (!gtk_widget_get_sensitive(widget)) text += ", insensitive";
    if (!gtk_widget_get_visible(widget)) text += ", hidden";
    return text;
}

std::string Packing(GtkWidget* parent, GtkWidget* widget) {
    if (!GTK_IS_BOX(parent) || GTK_IS_BUTTON_BOX(parent)) return "";
    gboolean expand, fill;
    guint padding;
    GtkPackType from;
    gtk_box_query_child_packing(GTK_BOX(parent), widget, &expand, &fill, &padding, &from);
    return std::string(", ") + (expand ? "expand " : "- ") + (fill ? "fill " : "- ") +
           std::to_string(padding);
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

void ExpectTree(GtkWidget* window, const std::map<std::string, std::string>& descriptions) {
    std::map<GtkWidget*, std::string> names;
    for (const auto& [name, text] : descriptions) names[lookup_widget(window, name.c_str())] = name;
    EXPECT_EQ(names.size(), descriptions.size());
    for (const auto& [widget, name] : names) {
        if (widget == nullptr) continue;
        std::string text = G_OBJECT_TYPE_NAME(widget);
        if (GtkWidget* parent = gtk_widget_get_parent(widget)) {
            text += " in " + names[parent] + Packing(parent, widget);
        }
        text += Settings(widget);
        if (GTK_IS_BUTTON(widget)) {
            text += std::string(": ") + gtk_button_get_label(GTK_BUTTON(widget));
            EXPECT_TRUE(gtk_button_get_use_underline(GTK_BUTTON(widget)));
        }
        EXPECT_EQ(text, descriptions.at(name)) << name;
    }
}
