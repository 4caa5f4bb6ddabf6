// Opens the manual in the player's browser and tells the player when there is none.
#ifndef HALCYRIX_APP_BROWSER_H
#define HALCYRIX_APP_BROWSER_H

#include <gtk/gtk.h>

#include <csignal>
#include <string>

// Set when a child could not start a browser, until the player has been told.
extern volatile sig_atomic_t browser_failed;

// The shell command for a value of BROWSER: its first four "%s" become the address and "%%" becomes
// "%"; anything else stays. At most 2047 characters, the rest is cut.
std::string expand_browser_command(const std::string& browser, const std::string& address);

// Runs the command of BROWSER on the manual in a child process, and does not wait for it. The child
// ends with status 99 when BROWSER is unset or the shell cannot be started.
void open_manual();

// For SIGCHLD: reaps the children that have ended and notes the failure of a browser start.
void sighandler(int signo);

// A GTK timeout: shows the notice of a failed browser start. Always goes on.
gboolean gtkidlehandler(gpointer data);

#endif
