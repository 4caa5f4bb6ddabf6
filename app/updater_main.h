// The update utility, from GTK's start to its end.
#ifndef HALCYRIX_APP_UPDATER_MAIN_H
#define HALCYRIX_APP_UPDATER_MAIN_H

// Shows the main window and runs until the player ends it. `selfUpdate` tells whether the updater
// itself is brought up to date first. Returns the exit status of the program, which is 0.
int updater_main(int argc, char** argv, int selfUpdate);

#endif
