// The running updater: its client, and the order of the sessions.
#pragma once

#include "app/gui_log.h"
#include "update/update_client.h"

// Made by start_updater() and kept until the process ends.
extern UpdateClient* update_client;
extern _Log* gui_log;

// Whether the session under way is the updater's own, not the game's.
extern bool self_update_pending;

// Prepares the game's home directory and makes it the working directory, creates the log and the
// client, starts the first session and joins the dispatcher to the GTK main loop. While another
// updater works in the directory, the session waits. Called once, with the main window built;
// returns at once.
void start_updater(int selfUpdate);
