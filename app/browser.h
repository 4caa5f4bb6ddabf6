// Opens the manual in the player's browser.
#pragma once

#include <gtk/gtk.h>

#include <csignal>
#include <string>

// Set when a child could not start a browser; cleared when the player has been told.
extern volatile sig_atomic_t browser_failed;

// The shell command for a value of BROWSER: the first four "%s" become the address and "%%" becomes
// "%". Cut at 2047 characters.
std::string expand_browser_command(const std::string& browser, const std::string& address);

// Runs the command of BROWSER on the manual in a child process and does not wait for it. The child
// exits with 99 when BROWSER is unset or the shell cannot be started.
void open_manual();

// For SIGCHLD: reaps the children that have ended and sets browser_failed.
void sighandler(int signo);

// A GTK timeout: tells the player of a failed browser start. Always returns TRUE.
gboolean gtkidlehandler(gpointer data);
