// Programs, as tests start them.
#ifndef HALCYRIX_TESTS_SUPPORT_PROGRAM_H
#define HALCYRIX_TESTS_SUPPORT_PROGRAM_H

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

// A program in a process of its own, which ends at the latest with this object or with the test.
class Program {
public:
    // The first word is the program. `prepare` runs in the new process: it can set the environment,
    // limits and signals there. It may be empty.
    explicit Program(const std::vector<std::string>& command,
                     const std::function<void()>& prepare = {});
    ~Program();
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // Waits until it has said this, on either stream, since the last such call.
    void AwaitWords(const std::string& words);
    // Waits for its end. Returns its exit status, or 128 and the signal that ended it.
    int Wait();

    pid_t Pid() const { return m_pid; }
    // All that was read by the two calls above.
    const std::string& Said() const { return m_said; }

private:
    bool Read();

    pid_t m_pid;
    int m_output;
    std::string m_said;
    size_t m_heard = 0;
    int m_status = -1;
};

// Runs a program to its end, with what it says into `said` (may be null). Returns as Wait does.
int RunProgram(const std::vector<std::string>& command, std::string* said = nullptr);

#endif
