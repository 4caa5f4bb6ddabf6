// One thread for the window and the network: the dispatcher inside the GTK main loop, and the
// window's turn inside long work.
#ifndef HALCYRIX_APP_WINDOW_EVENTS_H
#define HALCYRIX_APP_WINDOW_EVENTS_H

#include <gtk/gtk.h>

#include "net/event_loop.h"

extern EventLoop event_loop;
// Network input came while a dispatch pass was running: another one has to follow.
extern bool input_pending;

// From now on the GTK main loop serves the dispatcher, in which `socket` is registered while a
// session runs; both last as long as the program. When no session is left, the game's home
// directory is given back.
void join_main_loop(const IO_Event* socket);

// Input on the socket, and the clock for all the rest. Each runs a dispatch pass, unless one is
// running further down the stack.
void gtkinputhandler(gpointer data, gint source, GdkInputCondition condition);
gboolean gtktimerhandler(gpointer data);

// Makes GTK watch the socket exactly while there is a wish to read from it.
void sync_input_watch();

// Lets GTK process its events, from inside of long work: until none is left or network input waits.
// Does not return when the player has ended the program meanwhile.
void process_window_events();

// Cancel, and closing the window: the program ends with status 0. In the main loop that happens
// when this has returned, within long work at its next turn for the window.
void request_quit();

// Ends the program if that has been requested.
void quit_if_requested();

#endif
