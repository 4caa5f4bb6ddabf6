// The running updater: the one client, and the dispatcher inside the GTK main loop.
#ifndef HALCYRIX_APP_UPDATER_H
#define HALCYRIX_APP_UPDATER_H

#include <gtk/gtk.h>

#include "app/gui_log.h"
#include "net/event_loop.h"
#include "update/update_client.h"

extern EventLoop event_loop;
// Made by start_updater() and kept until the process ends.
extern UpdateClient* update_client;
extern _Log* gui_log;

// The session under way is the updater's own, not the game's.
extern bool self_update_pending;
// Network input came while a dispatch pass was running: another one has to follow.
extern bool input_pending;

// The status bar's messages of this context are the client's, one at a time.
constexpr guint kStatusContext = 1;

// Prepares the game's home directory and makes it the working directory, creates the log and the
// client, starts the first session and joins the dispatcher to the GTK main loop. Called once, with
// the main window built; returns while the session runs.
void start_updater(int selfUpdate);

// Starts a session of the client: the updater's own, or the game's. Returns 0, with a log line for
// the player, when none could be started.
int start_session(int selfUpdate);

// Input on the client's socket, and the clock for all the rest. Each runs a dispatch pass, unless
// one is running further down the stack.
void gtkinputhandler(gpointer data, gint source, GdkInputCondition condition);
gboolean gtktimerhandler(gpointer data);

// Makes GTK watch the client's socket exactly while the client wants to read from it.
void sync_input_watch();

#endif
