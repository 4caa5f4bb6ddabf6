#include "app/desktop_identity.h"

#include <gtk/gtk.h>

void identify_to_desktop() {
    // GTK makes the window class from it: the same with a capital letter.
    g_set_prgname(kDesktopName);
    gtk_window_set_default_icon_name(kDesktopName);
}
