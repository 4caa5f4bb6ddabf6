#include "app/home.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

constexpr mode_t kDirectoryMode = 0755;

int locked_home = -1;  // the descriptor that holds the lock

// With an empty HOME the game would be installed in the root directory.
std::string user_home() {
    const char* home = getenv("HOME");
    if (home != nullptr && *home != '\0') return home;
    const passwd* account = getpwuid(getuid());
    return account != nullptr ? account->pw_dir : "";
}

// False for a process that has ended, or that the system hides from this user.
bool is_process_of_this_user(int process) {
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    std::string word;
    while (status >> word && word != "Uid:") continue;
    uid_t user;
    return status >> user && user == getuid();
}

// Whether every lock on the working directory that the system lists belongs to another user. False
// when it lists none, as for a lock of another machine.
bool only_strangers_lock() {
    struct stat home;
    if (stat(".", &home) != 0) return false;
    bool found = false;
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        int process;
        unsigned long inode;
        // Waiting processes have "->" first. Device numbers may differ from those of stat().
        const char* const format = "%*d: FLOCK %*s %*s %d %*x:%*x:%lu";
        if (sscanf(line.c_str(), format, &process, &inode) != 2 || inode != home.st_ino) continue;
        if (is_process_of_this_user(process)) return false;
        found = true;
    }
    return found;
}

}  // namespace

std::string game_home() { return user_home() + "/.halcyrix"; }

void make_home_absolute() {
    const std::string home = user_home();
    if (home.empty() || home.front() == '/') return;
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(home, error);
    if (!error) setenv("HOME", absolute.c_str(), 1);
}

std::string manual_address() { return "file:" + game_home() + "/manual.html"; }

EnteredHome enter_game_home() {
    const std::string home = game_home();
    EnteredHome result{access(home.c_str(), F_OK) != 0, 0};
    if (result.created && mkdir(home.c_str(), kDirectoryMode) != 0) {
        result.created = false;
        // EEXIST: a dangling link. chdir() tells what is wrong.
        if (errno != EEXIST) result.error = errno;
    }
    if (result.error == 0 && chdir(home.c_str()) != 0) result.error = errno;
    return result;
}

bool lock_game_home() {
    locked_home = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (flock(locked_home, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return true;
    unlock_game_home();
    return only_strangers_lock();
}

void unlock_game_home() {
    if (locked_home != -1) close(locked_home);
    locked_home = -1;
}
