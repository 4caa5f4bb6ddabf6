#include "app/support.h"

#include <algorithm>
#include <string>

#include "app/utf8_filter.h"

namespace {

constexpr int kButtonSpacing = 30;
constexpr int kTextMargin = 3;
constexpr int kMessagePadding = 20;
constexpr size_t kLongestLine = 100;  // bytes of a message's line that is not wrapped

GtkWidget* parent_of(GtkWidget* widget) {
    GtkWidget* parent = GTK_IS_MENU(widget) ? gtk_menu_get_attach_widget(GTK_MENU(widget))
                                            : gtk_widget_get_parent(widget);
    if (parent != nullptr) return parent;
    return static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(widget), "GladeParentKey"));
}

void release_widget(gpointer widget) {
    gtk_widget_unref(static_cast<GtkWidget*>(widget));
}

bool has_long_line(const std::string& text) {
    for (size_t begin = 0; begin <= text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        if (end - begin > kLongestLine) return true;
        begin = end + 1;
    }
    return false;
}

}  // namespace

void message_box(const char* text, const char* title) {
    GtkWidget* dialog = gtk_dialog_new();
    const std::string shown = ValidUtf8(text);
    GtkWidget* label = gtk_label_new(shown.c_str());
    GtkWidget* button = gtk_button_new_with_label(" Close ");

    gtk_window_set_title(GTK_WINDOW(dialog), title);
    gtk_window_set_position(GTK_WINDOW(dialog), GTK_WIN_POS_CENTER);
    gtk_box_pack_start(GTK_BOX(GTK_DIALOG(dialog)->action_area), button, FALSE, FALSE, 0);
    gtk_misc_set_padding(GTK_MISC(label), kMessagePadding, kMessagePadding);
    gtk_container_add(GTK_CONTAINER(GTK_DIALOG(dialog)->vbox), label);
    // A long path would push the button off the screen.
    gtk_label_set_line_wrap(GTK_LABEL(label), has_long_line(shown));
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    g_signal_connect_swapped(button, "clicked", G_CALLBACK(gtk_widget_destroy), dialog);
    gtk_widget_show_all(dialog);
}

GtkWidget* lookup_widget(GtkWidget* widget, const char* name) {
    while (GtkWidget* parent = parent_of(widget)) widget = parent;
    auto* found = static_cast<GtkWidget*>(g_object_get_data(G_OBJECT(widget), name));
    if (found == nullptr) g_log(G_LOG_DOMAIN, G_LOG_LEVEL_WARNING, "Widget not found: %s", name);
    return found;
}

void store_widget(GtkWidget* window, const char* name, GtkWidget* widget) {
    if (widget == window) {
        g_object_set_data(G_OBJECT(window), name, widget);
    } else {
        g_object_set_data_full(G_OBJECT(window), name, gtk_widget_ref(widget), release_widget);
    }
}

GtkWidget* named(GtkWidget* window, const char* name, GtkWidget* widget) {
    store_widget(window, name, widget);
    gtk_widget_show(widget);
    return widget;
}

void name_for_readers(GtkWidget* widget, const char* name) {
    atk_object_set_name(gtk_widget_get_accessible(widget), name);
}

GtkWidget* new_scrolled_window(GtkWidget* window, const char* name) {
    GtkWidget* scrolled = named(window, name, gtk_scrolled_window_new(nullptr, nullptr));
    gtk_widget_set_can_focus(scrolled, FALSE);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_NEVER,
                                   GTK_POLICY_ALWAYS);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    return scrolled;
}

GtkWidget* new_text_view(GtkWidget* window, const char* name, GtkWidget* scrolledWindow) {
    GtkWidget* view = named(window, name, gtk_text_view_new());
    gtk_container_add(GTK_CONTAINER(scrolledWindow), view);
    gtk_text_view_set_wrap_mode(GTK_TEXT_VIEW(view), GTK_WRAP_WORD);
    gtk_text_view_set_accepts_tab(GTK_TEXT_VIEW(view), FALSE);
    gtk_text_view_set_left_margin(GTK_TEXT_VIEW(view), kTextMargin);
    gtk_text_view_set_right_margin(GTK_TEXT_VIEW(view), kTextMargin);
    return view;
}

GtkWidget* new_button_box(GtkWidget* window, const char* name) {
    GtkWidget* box = named(window, name, gtk_hbutton_box_new());
    gtk_button_box_set_layout(GTK_BUTTON_BOX(box), GTK_BUTTONBOX_SPREAD);
    gtk_box_set_spacing(GTK_BOX(box), kButtonSpacing);
    return box;
}

GtkWidget* new_button(GtkWidget* window, const char* name, GtkWidget* box, const char* label) {
    GtkWidget* button = named(window, name, gtk_button_new_with_mnemonic(label));
    gtk_container_add(GTK_CONTAINER(box), button);
    gtk_widget_set_can_default(button, TRUE);
    return button;
}
