#include "app/programs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <string_view>
#include <vector>

#include "app/browser.h"
#include "app/home.h"
#include "lib/elf_file.h"

void prepare_process() {
    // Started without standard streams, the connection to the display would become one of them, and
    // the first warning would be written into it.
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);

    signal(SIGCHLD, sighandler);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);  // a limit on the size of files is an error of the write
}

void become(const char* path, std::initializer_list<const char*> arguments) {
    std::vector<char*> pointers;
    for (const char* argument : arguments) pointers.push_back(const_cast<char*>(argument));
    pointers.push_back(nullptr);
    // First, so that what came while it was blocked is still ignored.
    sigset_t none, blocked;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, &blocked);
    // The system itself sets signals that have a handler, as SIGCHLD does, to their defaults.
    const auto pipeHandler = signal(SIGPIPE, SIG_DFL);
    const auto sizeHandler = signal(SIGXFSZ, SIG_DFL);
    execv(path, pointers.data());
    signal(SIGXFSZ, sizeHandler);
    signal(SIGPIPE, pipeHandler);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

bool is_updater_copy_name(const char* startName) {
    return startName != nullptr && std::string_view(startName).ends_with(kUpdaterCopyName);
}

void start_updater_copy(const std::string& path, const char* argument) {
    chmod(path.c_str(), kProgramMode);
    // A cut-off copy would crash at every start, and no session could ever repair it.
    if (!IsTruncatedElf(path)) become(path.c_str(), {kUpdaterCopyName, argument});
}

void hand_off() {
    const std::string path = game_home() + "/" + kUpdaterCopyName;
    if (access(path.c_str(), F_OK) == 0) start_updater_copy(path, nullptr);
}
