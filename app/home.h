// The game's home directory, where the player's files are. Nothing here has a length limit.
#pragma once

#include <string>

// Below HOME; when that is unset or empty, below the directory of the user's account.
std::string game_home();

// Makes a relative HOME absolute, for the programs that this one becomes elsewhere. Call it before
// the working directory changes.
void make_home_absolute();

// The address of the manual for a browser.
std::string manual_address();

struct EnteredHome {
    bool created;  // there was none before
    int error;     // 0, or why the directory cannot be entered
};

// Makes the directory if there is none, and makes it the working directory.
EnteredHome enter_game_home();

// Locks the working directory until unlock_game_home() or the end of the process; a program that
// the process becomes has to lock it anew. False when another process of this user has the lock.
// True, without a lock, where directories cannot be locked and where another user has the lock: any
// user who may read the directory can take it.
bool lock_game_home();
void unlock_game_home();
