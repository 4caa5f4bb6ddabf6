// Chooses the mode of this start and runs it.
#include <fcntl.h>
#include <gtk/gtk.h>
#include <libintl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "app/browser.h"
#include "app/bugwindow.h"
#include "app/hand_off.h"
#include "app/home.h"
#include "app/mainwindow.h"
#include "app/updater.h"
#include "app/window_events.h"

namespace {

// The name of the installed program, its menu entry and its icon.
constexpr char kDesktopName[] = "halcyrix-updater";

constexpr guint32 kBrowserCheckPeriod = 200;  // milliseconds

void prepare_process() {
    // Open missing standard descriptors. The display's connection would become one of them, and
    // warnings would be written into it.
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);

    signal(SIGCHLD, sighandler);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);  // a limit on the size of files makes the write fail instead
}

void start_gtk(int* argc, char*** argv) {
    // GTK makes the windows' class of it, with a capital letter. The menu entry names that class.
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
    const bool isCopy = is_updater_copy_name(argv[0]);
    // A copy that ends by itself, for want of a display, has not failed.
    if (isCopy) atexit(forget_starts);
    start_gtk(&argc, &argv);
    GtkWidget* window = create_mainwindow();
    gtk_widget_show(window);
    if (isCopy || !is_copy_given_up()) forget_starts();
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
    make_home_absolute();
    if (!is_updater_copy_name(argv[0])) hand_off();
    return updater_main(argc, argv, strcmp(mode, "-phase2") != 0);
}
