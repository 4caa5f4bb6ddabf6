// Starting programs in tests, and a time limit for every wait.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <functional>
#include <string>
#include <vector>

// Names what the test waits for next, and starts the time limit anew. After ten seconds the program
// writes the test and these words to standard error and fails. The environment variable
// TEST_SECONDS sets another limit, 0 none.
void Awaiting(const std::string& what);

// A program in a process of its own. It is killed with this object, and when the test dies.
class Program {
public:
    // The first word is the program. `prepare` runs in the new process, to set the environment,
    // limits or signals there. It may be empty.
    explicit Program(const std::vector<std::string>& command,
                     const std::function<void()>& prepare = {})
        : m_command(testing::PrintToString(command)) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) abort();
        m_output = ends[0];
        fcntl(m_output, F_SETPIPE_SZ, 1 << 20);  // so that the program never waits for the test
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
    ~Program() {
        if (m_status == -1) kill(m_pid, SIGKILL);
        if (m_status == -1) waitpid(m_pid, nullptr, 0);
        close(m_output);
    }
    Program(const Program&) = delete;

    // Waits until these words are in its output, behind those of the last such call.
    void AwaitWords(const std::string& words) {
        Awaiting("the program's words \"" + words + "\"");
        while (m_said.find(words, m_heard) == std::string::npos) {
            if (!Read()) FAIL() << "the program ended without \"" << words << "\":\n" << m_said;
        }
        m_heard = m_said.find(words, m_heard) + words.size();
    }
    // Waits for its end. Returns its exit status, or 128 and the signal that ended it.
    int Wait() {
        Awaiting("the end of " + m_command);
        waitpid(m_pid, &m_status, 0);
        // Its children may still run and keep the pipe open.
        for (pollfd more{m_output, POLLIN, 0}; poll(&more, 1, 0) == 1 && Read();) continue;
        return WIFSIGNALED(m_status) ? 128 + WTERMSIG(m_status) : WEXITSTATUS(m_status);
    }

    pid_t Pid() const { return m_pid; }
    // The output that the two calls above have read, of both streams.
    const std::string& Said() const { return m_said; }

private:
    bool Read() {
        char piece[4096];
        const ssize_t got = read(m_output, piece, sizeof piece);
        if (got > 0) m_said.append(piece, static_cast<size_t>(got));
        return got > 0;
    }

    const std::string m_command;
    pid_t m_pid;
    int m_output, m_status = -1;
    std::string m_said;
    size_t m_heard = 0;
};

// Runs a program to its end and appends its output to `said`, which may be null. Returns as Wait
// does.
inline int RunProgram(const std::vector<std::string>& command, std::string* said = nullptr) {
    Program program(command);
    const int status = program.Wait();
    if (said != nullptr) *said += program.Said();
    return status;
}
