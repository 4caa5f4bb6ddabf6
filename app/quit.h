// Ending the program at the player's wish.
#ifndef HALCYRIX_APP_QUIT_H
#define HALCYRIX_APP_QUIT_H

// Ends the GTK main loop and stops the dispatcher. Works at any moment: before the main loop is
// entered it keeps it from being entered, and from within a dispatch pass it makes that one the
// last, so that no further session or program is started.
void request_quit();

bool quit_requested();

#endif
