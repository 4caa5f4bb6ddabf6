// The window and the network in one thread: the dispatcher runs inside the GTK main loop, and long
// work lets GTK process its events.
#pragma once

#include <gtk/gtk.h>

#include "net/event_loop.h"

extern EventLoop event_loop;
// Set when network input arrives during a dispatch pass: another pass must follow.
extern bool input_pending;

// Makes the GTK main loop serve the dispatcher from now on. `socket` is registered there while a
// session runs, and must last as long as the program. At the end of the last session the game's
// home directory is unlocked.
void join_main_loop(const IO_Event* socket);

// GTK's callbacks for input on the socket and for the timer, which serves the rest. Each runs a
// dispatch pass, unless one is running already.
void gtkinputhandler(gpointer data, gint source, GdkInputCondition condition);
gboolean gtktimerhandler(gpointer data);

// Makes GTK watch the socket for input exactly while the socket's flags ask for reading.
void sync_input_watch();

// Lets GTK process its events during long work, until none is left or network input arrives. Ends
// the program if the player has requested that meanwhile.
void process_window_events();

// For Cancel and closing the window: ends the program with status 0, at once in the main loop, in
// long work when it next lets GTK process events.
void request_quit();

// Ends the program if that has been requested.
void quit_if_requested();
