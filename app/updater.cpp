#include "app/updater.h"

#include <gtk/gtk.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "app/hand_off.h"
#include "app/home.h"
#include "app/mainwindow.h"
#include "app/message_box.h"
#include "app/window_events.h"
#include "lib/elf_file.h"

namespace {

constexpr guint32 kLockPeriod = 1000;  // milliseconds

// Without its home directory the game's files would be written elsewhere.
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

bool start_session(bool selfUpdate) {
    const bool started = (selfUpdate ? update_client->Start(0, "linux64upd", nullptr)
                                     : update_client->Start(1, "linux64", "common", nullptr)) != 0;
    if (!started) {
        gamelog->Printf(
            "Unable to connect to the Brenmoor update server!\n"
            "Please re-run the application to retry.\n");
    }
    return started;
}

// The updater's own session is followed by a restart as the copy, or by the game's session when
// nothing has changed. After the game's session the player can play.
void session_finished(int32_t result) {
    const bool ownSession = std::exchange(self_update_pending, false);
    if (ownSession && result != 0) {
        console_begin_line();
        sync_copy();
        start_updater_copy(std::string("./") + kUpdaterCopyName, "-phase2");
    }
    if (ownSession && (result == 0 || is_copy_given_up())) {
        start_session(false);
        return;
    }
    if (ownSession) {
        if (!IsTruncatedElf(kUpdaterCopyName)) exit(0);
        // A full disk usually cut it off. A restart would fail in the same way.
        gamelog->Printf(
            "The new updater is incomplete and cannot be started.  Is the disk full?\n"
            "Please make room and start this program again to update.\n"
            "Until then the game can be played as it is installed.\n");
    }
    gtk_widget_set_sensitive(start_button, TRUE);
    gtk_widget_set_sensitive(help_button, TRUE);
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
    quit_if_requested();  // the window may be gone already
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
    gui_log = new _Log(session_finished);
    gtk_statusbar_push(GTK_STATUSBAR(progress2), kStatusContext, "Initializing...");
    update_client = new UpdateClient(&event_loop, gui_log);
    gamelog = gui_log;

    gtk_main_iteration_do(FALSE);
    quit_if_requested();
    if (!prepare_home(entered)) return;
    if (is_copy_given_up()) {
        gamelog->Printf(
            "The downloaded updater failed to start three times; this one goes on instead.\n");
    }
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
