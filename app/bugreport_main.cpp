#include "app/bugreport_main.h"

#include "app/bugwindow.h"
#include "app/desktop_identity.h"
#include "app/support.h"
#include "app/widgets.h"
#include "bugreport/submit.h"

const char* gEIPaddress = "none";
GtkWidget* bugwindow = nullptr;

int bugreport_main(int argc, char** argv) {
    identify_to_desktop();
    gtk_set_locale();
    gtk_init(&argc, &argv);
    gEIPaddress = argc > 2 ? argv[2] : "none";
    keep_widget(bugwindow, create_bugwindow());
    gtk_widget_show(bugwindow);
    gtk_main();
    return 0;
}

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
