#include "app/updater.h"

#include <gtk/gtk.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "app/home.h"
#include "app/mainwindow.h"
#include "app/message_box.h"
#include "app/window_events.h"

namespace {

constexpr guint32 kLockPeriod = 1000;  // milliseconds

// The game's files belong there and nowhere else: without it no session may write any.
bool prepare_home(const EnteredHome& entered) {
    if (entered.error == 0) return true;
    gamelog->Printf(
        "Can't use the directory for the game's files:\n%s: %s\n"
        "Please see to it that it is there and that it is yours, then\n"
        "start this program again.\n",
        game_home().c_str(), strerror(entered.error));
    gui_log->SetStatus("Update failed.");
    return false;
}

void begin_sessions() {
    if (!start_session(self_update_pending)) {
        unlock_game_home();
        return;
    }
    join_main_loop(update_client);
    gtk_progress_set_format_string(GTK_PROGRESS(progress1), "");
    gtk_progress_configure(GTK_PROGRESS(progress1), 0.0, 0.0, 1.0);
}

gboolean begin_when_free(gpointer) {
    if (!lock_game_home()) return TRUE;
    begin_sessions();
    return FALSE;
}

}  // namespace

UpdateClient* update_client = nullptr;
_Log* gui_log = nullptr;
bool self_update_pending = false;

void start_updater(int selfUpdate) {
    const EnteredHome entered = enter_game_home();
    if (entered.created) {
        const std::string text = "The directory\n\n" + game_home() +
                                 "\n\nhas been created to store the Halcyrix\nprogram and data "
                                 "files.\n\nThose files are being downloaded now.";
        message_box(text.c_str(), "Halcyrix Home Directory");
    }
    if (entered.error == 0 && access("manual.html", F_OK) == 0) {
        gtk_widget_set_sensitive(help_button, TRUE);
    }
    self_update_pending = selfUpdate != 0;
    gui_log = new _Log;
    gtk_statusbar_push(GTK_STATUSBAR(progress2), kStatusContext, "Initializing...");
    update_client = new UpdateClient(&event_loop, gui_log);
    gamelog = gui_log;

    gtk_main_iteration_do(FALSE);
    quit_if_requested();
    if (!prepare_home(entered)) return;
    if (lock_game_home()) {
        begin_sessions();
        return;
    }
    gamelog->Printf(
        "Another updater is at work in %s.\n"
        "This one begins when that has finished.\n",
        game_home().c_str());
    gui_log->SetStatus("Waiting for another updater...");
    gtk_timeout_add(kLockPeriod, begin_when_free, nullptr);
}

int start_session(int selfUpdate) {
    const int started = selfUpdate ? update_client->Start(0, "linux64upd", nullptr)
                                   : update_client->Start(1, "linux64", "common", nullptr);
    if (!started) {
        gamelog->Printf(
            "Unable to connect to the Brenmoor update server!\n"
            "Please re-run the application to retry.\n");
    }
    return started;
}
