#include "app/home.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

std::string UserHome() {
    const char* home = getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const passwd* account = getpwuid(getuid());
    return account != nullptr ? account->pw_dir : "";
}

std::string GameHome() {
    return UserHome() + "/.halcyrix";
}

std::string ManualAddress() {
    return "file:" + GameHome() + "/manual.html";
}
