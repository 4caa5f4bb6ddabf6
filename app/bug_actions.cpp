#include "app/bug_actions.h"

#include "app/widgets.h"
#include "bugreport/submit.h"

const char* gEIPaddress = "none";
GtkWidget* bugwindow = nullptr;

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

void on_bug_cancel_clicked(GtkButton*, gpointer) {
    gtk_main_quit();
}

gboolean on_bugwindow_delete_event(GtkWidget*, GdkEvent*, gpointer) {
    gtk_main_quit();
    return FALSE;
}

gboolean on_bughelp_delete_event(GtkWidget*, GdkEvent*, gpointer) {
    return FALSE;
}
