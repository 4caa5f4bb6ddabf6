// Where the player's files are. Nothing here has a length limit.
#ifndef HALCYRIX_APP_HOME_H
#define HALCYRIX_APP_HOME_H

#include <string>

// The value of HOME; when it is unset, the directory of the user's account entry.
std::string UserHome();

// The game's home directory, the working directory from start-up on.
std::string GameHome();

// The manual, as a browser takes it.
std::string ManualAddress();

#endif
