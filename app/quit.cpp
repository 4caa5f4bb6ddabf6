#include "app/quit.h"

#include <gtk/gtk.h>

#include "app/updater.h"

namespace {

bool requested = false;

}  // namespace

void request_quit() {
    requested = true;
    event_loop.Stop(0);
    if (gtk_main_level() > 0) gtk_main_quit();
}

bool quit_requested() {
    return requested;
}
