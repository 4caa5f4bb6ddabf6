// The game's home directory, where the player's files are. Nothing here has a length limit.
#ifndef HALCYRIX_APP_HOME_H
#define HALCYRIX_APP_HOME_H

#include <string>

// In the value of HOME; when it is unset, in the directory of the user's account entry.
std::string game_home();

// The manual, as a browser takes it.
std::string manual_address();

struct EnteredHome {
    bool created;  // there was none before
    int error;     // 0, or why the directory cannot be entered
};

// Makes the directory if there is none, and makes it the working directory.
EnteredHome enter_game_home();

// Takes the working directory for this process alone, until unlock_game_home() or the end of the
// process, however it ends; a program that the process becomes has to take it anew. False when
// another process has it. Where directories cannot be locked, everybody gets it.
bool lock_game_home();
void unlock_game_home();

#endif
