#include "app/home.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace {

constexpr mode_t kDirectoryMode = 0755;

int locked_home = -1;  // the descriptor that holds the lock

// An empty HOME counts as unset: the game would be installed in the root directory.
std::string user_home() {
    const char* home = getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const passwd* account = getpwuid(getuid());
    return account != nullptr ? account->pw_dir : "";
}

}  // namespace

std::string game_home() {
    return user_home() + "/.halcyrix";
}

std::string manual_address() {
    return "file:" + game_home() + "/manual.html";
}

EnteredHome enter_game_home() {
    const std::string home = game_home();
    EnteredHome result{access(home.c_str(), F_OK) != 0, 0};
    if (result.created && mkdir(home.c_str(), kDirectoryMode) != 0) {
        result.created = false;
        // A link to a directory that is not there: entering it tells what is wrong.
        if (errno != EEXIST) result.error = errno;
    }
    if (result.error == 0 && chdir(home.c_str()) != 0) result.error = errno;
    return result;
}

bool lock_game_home() {
    locked_home = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (flock(locked_home, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return true;
    unlock_game_home();
    return false;
}

void unlock_game_home() {
    if (locked_home != -1) close(locked_home);
    locked_home = -1;
}
