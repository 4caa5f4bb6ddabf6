#include "tests/support/programs.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>

int RunProgram(const std::vector<std::string>& command, std::string* output) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        std::vector<char*> arguments;
        for (const std::string& word : command) {
            arguments.push_back(const_cast<char*>(word.c_str()));
        }
        arguments.push_back(nullptr);
        execv(arguments[0], arguments.data());
        _exit(127);
    }
    close(ends[1]);
    char piece[4096];
    for (ssize_t got; (got = read(ends[0], piece, sizeof piece)) > 0;) {
        if (output != nullptr) output->append(piece, static_cast<size_t>(got));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}
