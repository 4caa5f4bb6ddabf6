// Chooses what this start of the program is for, and runs it from GTK's start to its end.
#include <gtk/gtk.h>
#include <libintl.h>

#include <cstring>

#include "app/browser.h"
#include "app/bug_actions.h"
#include "app/bugwindow.h"
#include "app/mainwindow.h"
#include "app/programs.h"
#include "app/updater.h"
#include "app/window_events.h"

namespace {

// The name of the installed program, its menu entry and its icon.
constexpr char kDesktopName[] = "halcyrix-updater";

constexpr guint32 kBrowserCheckPeriod = 200;  // milliseconds

void start_gtk(int* argc, char*** argv) {
    // The windows get the class and the icon of the menu entry, whatever name the program was
    // started under. GTK makes the class from it: the same with a capital letter.
    g_set_prgname(kDesktopName);
    gtk_window_set_default_icon_name(kDesktopName);
    gtk_set_locale();
    bind_textdomain_codeset("libc", "UTF-8");  // the system's messages go into the window
    gtk_init(argc, argv);
}

int bugreport_main(int argc, char** argv) {
    start_gtk(&argc, &argv);
    if (argc > 2) gEIPaddress = argv[2];
    bugwindow = create_bugwindow();
    gtk_widget_show(bugwindow);
    gtk_main();
    return 0;
}

int updater_main(int argc, char** argv, int selfUpdate) {
    start_gtk(&argc, &argv);
    GtkWidget* window = create_mainwindow();
    gtk_widget_show(window);
    keep_widgets(window);
    gtk_timeout_add(kBrowserCheckPeriod, gtkidlehandler, nullptr);
    start_updater(selfUpdate);
    gtk_main();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    prepare_process();
    const char* mode = argc > 1 ? argv[1] : "";
    if (strcmp(mode, "-bugreport") == 0) return bugreport_main(argc, argv);
    if (!is_updater_copy_name(argv[0])) hand_off();
    return updater_main(argc, argv, strcmp(mode, "-phase2") != 0);
}
