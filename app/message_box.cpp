#include "app/message_box.h"

#include <gtk/gtk.h>

#include "app/widgets.h"

namespace {

constexpr int kPadding = 20;

// Wraps lines that are too long for the screen, also within words. Hyphens would look like a part
// of a path.
void fit_to_screen(GtkWidget* dialog, GtkWidget* label) {
    const int widest = gdk_screen_width() * 3 / 4 - 2 * kPadding;
    if (text_size(label, gtk_label_get_text(GTK_LABEL(label))).width <= widest) return;
    gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    // A label's request excludes its padding.
    gtk_widget_set_size_request(label, widest, -1);
    gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
    gtk_widget_set_size_request(dialog, widest + 2 * kPadding, -1);
    PangoAttrList* attributes = pango_attr_list_new();
    pango_attr_list_insert(attributes, pango_attr_insert_hyphens_new(FALSE));
    gtk_label_set_attributes(GTK_LABEL(label), attributes);
    pango_attr_list_unref(attributes);
}

}  // namespace

void message_box(const char* text, const char* title) {
    GtkWidget* dialog = gtk_dialog_new();
    gchar* shown = g_utf8_make_valid(text, -1);
    GtkWidget* label = gtk_label_new(shown);
    g_free(shown);
    GtkWidget* button = gtk_button_new_with_label(" Close ");

    gtk_window_set_title(GTK_WINDOW(dialog), title);
    gtk_window_set_position(GTK_WINDOW(dialog), GTK_WIN_POS_CENTER);
    gtk_box_pack_start(GTK_BOX(GTK_DIALOG(dialog)->action_area), button, FALSE, FALSE, 0);
    gtk_misc_set_padding(GTK_MISC(label), kPadding, kPadding);
    gtk_container_add(GTK_CONTAINER(GTK_DIALOG(dialog)->vbox), label);
    gtk_label_set_selectable(GTK_LABEL(label), TRUE);
    fit_to_screen(dialog, label);
    gtk_widget_grab_focus(button);  // else the label gets it and selects its text
    g_signal_connect_swapped(button, "clicked", G_CALLBACK(gtk_widget_destroy), dialog);
    gtk_widget_show_all(dialog);
}
