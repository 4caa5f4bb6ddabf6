#include "app/bugwindow.h"

#include <algorithm>

#include "app/widgets.h"
#include "bugreport/submit.h"

const char* gEIPaddress = "none";
GtkWidget* bugwindow = nullptr;

namespace {

constexpr int kBorder = 4;
constexpr int kLabelPadding = 3;
constexpr int kSeparatorPadding = 6;
constexpr int kMoreLines = 6;

constexpr char kCrashText[] =
    "We apologize, but Halcyrix Online has crashed.  It would be\n"
    "extremely helpful to us for you to fill out this brief bug report.  This \n"
    "form will automatically send information about the crash to \n"
    "Brenmoor, where we will try to address the problem as soon as we can.\n"
    "Please press the Help button for more information on what data this \n"
    "form sends to Brenmoor.";
constexpr char kRequestText[] =
    "Please provide any additional information you can, such as the \n"
    "events leading up to the crash, or anything else that you believe\n"
    "might have contributed.";

// Sends the report, which blocks, and ends the program whatever came of it.
void on_bug_submit_clicked(GtkButton*, gpointer) {
    GtkWidget* entry = lookup_widget(bugwindow, "username_entry");
    GtkWidget* view = lookup_widget(bugwindow, "bug_entry");
    const char* userName = gtk_entry_get_text(GTK_ENTRY(entry));

    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(view));
    GtkTextIter start, end;
    gtk_text_buffer_get_bounds(buffer, &start, &end);
    gchar* description = gtk_text_buffer_get_text(buffer, &start, &end, FALSE);
    SubmitBugReport(userName, description, gEIPaddress);
    g_free(description);
    gtk_main_quit();
}

void on_bug_help_clicked(GtkButton*, gpointer) {}

void on_bug_cancel_clicked(GtkButton*, gpointer) { gtk_main_quit(); }

gboolean on_bugwindow_delete_event(GtkWidget*, GdkEvent*, gpointer) {
    gtk_main_quit();
    return FALSE;
}

gboolean on_bughelp_delete_event(GtkWidget*, GdkEvent*, gpointer) { return FALSE; }

GtkWidget* new_label(GtkWidget* window, const char* name, GtkWidget* box, const char* text) {
    GtkWidget* label = named(window, name, gtk_label_new(text));
    gtk_box_pack_start(GTK_BOX(box), label, FALSE, FALSE, 0);
    return label;
}

// Aligns the label's text with that of the first label, which has a padding, at any window width.
void align_with_padded(GtkWidget* label, GtkAllocation* given, gpointer) {
    const int room = given->width - label->requisition.width;
    const float left = room > kLabelPadding ? (kLabelPadding + 0.5F) / static_cast<float>(room) : 0;
    gtk_misc_set_alignment(GTK_MISC(label), left, 0.5);
}

void add_user_name(GtkWidget* window, GtkWidget* vbox) {
    GtkWidget* hbox = named(window, "hbox1", gtk_hbox_new(FALSE, 0));
    gtk_box_pack_start(GTK_BOX(vbox), hbox, FALSE, FALSE, 0);
    GtkWidget* label = new_label(window, "label2", hbox, "Your Halcyrix username: ");
    gtk_label_set_justify(GTK_LABEL(label), GTK_JUSTIFY_CENTER);
    GtkWidget* entry = named(window, "username_entry", gtk_entry_new());
    gtk_box_pack_start(GTK_BOX(hbox), entry, TRUE, TRUE, 0);
    gtk_label_set_mnemonic_widget(GTK_LABEL(label), entry);  // its name to screen readers
}

void add_description(GtkWidget* window, GtkWidget* vbox) {
    GtkWidget* inner = named(window, "vbox3", gtk_vbox_new(FALSE, 0));
    gtk_box_pack_start(GTK_BOX(vbox), inner, TRUE, TRUE, 0);
    GtkWidget* label = new_label(window, "label3", inner, kRequestText);
    gtk_misc_set_padding(GTK_MISC(label), 0, kLabelPadding);
    g_signal_connect(label, "size-allocate", G_CALLBACK(align_with_padded), nullptr);
    GtkWidget* scrolled = new_scrolled_window(window, "scrolledwindow2");
    gtk_box_pack_start(GTK_BOX(inner), scrolled, TRUE, TRUE, 0);
    GtkWidget* view = new_text_view(window, "bug_entry", scrolled);
    name_for_readers(view, "What happened before the crash");
}

void add_buttons(GtkWidget* window, GtkWidget* vbox) {
    GtkWidget* buttons = new_button_box(window, "hbuttonbox2");
    gtk_box_pack_start(GTK_BOX(vbox), buttons, FALSE, TRUE, 0);
    GtkWidget* submit = new_button(window, "bug_submit", buttons, "Submit");
    GtkWidget* help = new_button(window, "bug_help", buttons, "Help");
    gtk_widget_hide(help);
    GtkWidget* cancel = new_button(window, "bug_cancel", buttons, "Cancel");

    g_signal_connect(submit, "clicked", G_CALLBACK(on_bug_submit_clicked), nullptr);
    g_signal_connect(help, "clicked", G_CALLBACK(on_bug_help_clicked), nullptr);
    g_signal_connect(cancel, "clicked", G_CALLBACK(on_bug_cancel_clicked), nullptr);
}

// By default the field for the description is two lines high.
void make_room_to_write(GtkWidget* window, GtkWidget* view) {
    GtkRequisition natural;
    gtk_widget_size_request(gtk_bin_get_child(GTK_BIN(window)), &natural);
    const int height = natural.height + kMoreLines * text_size(view, "Xg").height;
    gtk_window_set_default_size(GTK_WINDOW(window), -1, std::min(height, largest_window().height));
}

}  // namespace

GtkWidget* create_bugwindow() {
    GtkWidget* window = new_window("bugwindow", "Halcyrix Bug Report");
    GtkWidget* vbox = named(window, "vbox2", gtk_vbox_new(FALSE, 0));
    gtk_container_add(GTK_CONTAINER(window), vbox);
    gtk_container_set_border_width(GTK_CONTAINER(vbox), kBorder);

    GtkWidget* label = new_label(window, "label1", vbox, kCrashText);
    gtk_misc_set_padding(GTK_MISC(label), kLabelPadding, kLabelPadding);
    gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
    GtkWidget* separator = named(window, "hseparator1", gtk_hseparator_new());
    gtk_box_pack_start(GTK_BOX(vbox), separator, FALSE, TRUE, kSeparatorPadding);
    add_user_name(window, vbox);
    add_description(window, vbox);
    add_buttons(window, vbox);
    fit_font(window);
    make_room_to_write(window, lookup_widget(window, "bug_entry"));

    g_signal_connect(window, "delete_event", G_CALLBACK(on_bugwindow_delete_event), nullptr);
    return window;
}

GtkWidget* create_bughelp() {
    GtkWidget* window = new_window("bughelp", "Halcyrix Bug Report Help");
    GtkWidget* scrolled = new_scrolled_window(window, "scrolledwindow3");
    gtk_container_add(GTK_CONTAINER(window), scrolled);
    GtkWidget* view = new_text_view(window, "text2", scrolled);
    gtk_text_view_set_editable(GTK_TEXT_VIEW(view), FALSE);

    g_signal_connect(window, "delete_event", G_CALLBACK(on_bughelp_delete_event), nullptr);
    return window;
}
