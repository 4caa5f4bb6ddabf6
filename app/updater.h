// The running updater: the one client, and the sessions that it runs.
#ifndef HALCYRIX_APP_UPDATER_H
#define HALCYRIX_APP_UPDATER_H

#include "app/gui_log.h"
#include "update/update_client.h"

// Made by start_updater() and kept until the process ends.
extern UpdateClient* update_client;
extern _Log* gui_log;

// The session under way is the updater's own, not the game's.
extern bool self_update_pending;

// Prepares the game's home directory and makes it the working directory, creates the log and the
// client, starts the first session and joins the dispatcher to the GTK main loop. Called once, with
// the main window built; returns while the session runs, or waits for another updater that is at
// work in the directory.
void start_updater(int selfUpdate);

// Starts a session of the client: the updater's own, or the game's. Returns 0, with a log line for
// the player, when none could be started.
int start_session(int selfUpdate);

#endif
