#include "tests/support/program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/await.h"

Program::Program(const std::vector<std::string>& command, const std::function<void()>& prepare) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    m_output = ends[0];
    fcntl(m_output, F_SETPIPE_SZ, 1 << 20);  // it must not wait for the test to read
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    m_pid = fork();
    if (m_pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        signal(SIGPIPE, SIG_DFL);
        signal(SIGXFSZ, SIG_DFL);
        if (prepare) prepare();
        execvp(words[0], words.data());
        _exit(127);
    }
    close(ends[1]);
}

Program::~Program() {
    if (m_status == -1) kill(m_pid, SIGKILL);
    if (m_status == -1) waitpid(m_pid, nullptr, 0);
    close(m_output);
}

bool Program::Read() {
    char piece[4096];
    const ssize_t got = read(m_output, piece, sizeof piece);
    if (got > 0) m_said.append(piece, static_cast<size_t>(got));
    return got > 0;
}

void Program::AwaitWords(const std::string& words) {
    Awaiting("the program's words \"" + words + "\"");
    while (m_said.find(words, m_heard) == std::string::npos) {
        if (!Read()) FAIL() << "the program ended without \"" << words << "\":\n" << m_said;
    }
    m_heard = m_said.find(words, m_heard) + words.size();
}

int Program::Wait() {
    Awaiting("the end of a program");
    waitpid(m_pid, &m_status, 0);
    // What it started may go on and keep the pipe open.
    for (pollfd more{m_output, POLLIN, 0}; poll(&more, 1, 0) == 1 && Read();) continue;
    return WIFSIGNALED(m_status) ? 128 + WTERMSIG(m_status) : WEXITSTATUS(m_status);
}

int RunProgram(const std::vector<std::string>& command, std::string* said) {
    Program program(command);
    const int status = program.Wait();
    if (said != nullptr) *said += program.Said();
    return status;
}
