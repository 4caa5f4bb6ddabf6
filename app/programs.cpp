#include "app/programs.h"

#include <unistd.h>

#include <csignal>
#include <vector>

void become(const char* path, std::initializer_list<const char*> arguments) {
    std::vector<char*> pointers;
    for (const char* argument : arguments) pointers.push_back(const_cast<char*>(argument));
    pointers.push_back(nullptr);
    // Unblock while still ignored, so pending signals are discarded.
    sigset_t none, blocked;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, &blocked);
    // exec() itself resets signals that have a handler, as SIGCHLD has.
    const auto pipeHandler = signal(SIGPIPE, SIG_DFL);
    const auto sizeHandler = signal(SIGXFSZ, SIG_DFL);
    execv(path, pointers.data());
    signal(SIGXFSZ, sizeHandler);
    signal(SIGPIPE, pipeHandler);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}
