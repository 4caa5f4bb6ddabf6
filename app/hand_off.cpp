#include "app/hand_off.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "app/home.h"
#include "app/programs.h"
#include "lib/elf_file.h"
#include "lib/server_name.h"
#include "lib/whole_file.h"
#include "log/gamelog.h"

namespace {

std::string path_at_home(const char* name) { return game_home() + "/" + name; }

// The note of one start: the size and the time of the copy. Empty without a copy.
std::string start_note() {
    struct stat copy;
    if (stat(path_at_home(kUpdaterCopyName).c_str(), &copy) != 0) return {};
    return std::to_string(copy.st_size) + " " + std::to_string(copy.st_mtim.tv_sec) + "." +
           std::to_string(copy.st_mtim.tv_nsec) + "\n";
}

}  // namespace

bool is_updater_copy_name(const char* startName) {
    return startName != nullptr && std::string_view(startName).ends_with(kUpdaterCopyName);
}

void hand_off() {
    const std::string path = path_at_home(kUpdaterCopyName);
    if (access(path.c_str(), F_OK) == 0) start_updater_copy(path, nullptr);
}

void start_updater_copy(const std::string& path, const char* argument) {
    chmod(path.c_str(), kProgramMode);
    // A cut-off copy would crash at every start.
    if (IsTruncatedElf(path) || is_copy_given_up()) return;
    GameLog::AppendToFile(path_at_home(kStartNotes).c_str(), "%s", start_note().c_str());
    become(path.c_str(), {kUpdaterCopyName, argument});
    forget_starts();
}

bool is_copy_given_up() {
    std::string notes, unread;
    const std::string note = start_note();
    return !note.empty() && ReadWholeFile(path_at_home(kStartNotes), &notes, &unread) &&
           std::string_view(notes).ends_with(note + note + note);
}

void forget_starts() { unlink(path_at_home(kStartNotes).c_str()); }

void sync_copy() {
    for (const char* path : {kUpdaterCopyName, "."}) {
        const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (fd == -1) continue;
        fsync(fd);
        close(fd);
    }
}
