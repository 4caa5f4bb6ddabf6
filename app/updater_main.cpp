#include "app/updater_main.h"

#include <fcntl.h>
#include <gdk/gdkx.h>
#include <gtk/gtk.h>

#include "app/browser.h"
#include "app/desktop_identity.h"
#include "app/mainwindow.h"
#include "app/quit.h"
#include "app/updater.h"
#include "app/widgets.h"

namespace {

constexpr guint32 kBrowserCheckPeriod = 200;  // milliseconds

// The connection to the X server is ours alone, not the game's or the browser's.
void keep_display_connection() {
    fcntl(ConnectionNumber(GDK_DISPLAY_XDISPLAY(gdk_display_get_default())), F_SETFD, FD_CLOEXEC);
}

}  // namespace

int updater_main(int argc, char** argv, int selfUpdate) {
    identify_to_desktop();
    gtk_set_locale();
    gtk_init(&argc, &argv);
    keep_display_connection();

    GtkWidget* window = create_mainwindow();
    gtk_widget_show(window);
    keep_mainwindow_widgets(window);

    gtk_timeout_add(kBrowserCheckPeriod, gtkidlehandler, nullptr);
    start_updater(selfUpdate);
    if (!quit_requested()) gtk_main();
    return 0;
}
