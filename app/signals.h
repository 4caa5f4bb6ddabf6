// What a program that we start finds its signals set to.
#ifndef HALCYRIX_APP_SIGNALS_H
#define HALCYRIX_APP_SIGNALS_H

#include <csignal>

// Sets SIGPIPE and SIGCHLD to their defaults and blocks no signal, for an exec call; puts back what
// was before when it goes, which it does only when that call has failed.
class DefaultSignals {
public:
    DefaultSignals();
    ~DefaultSignals();
    DefaultSignals(const DefaultSignals&) = delete;
    DefaultSignals& operator=(const DefaultSignals&) = delete;

private:
    struct sigaction m_pipe, m_child;
    sigset_t m_blocked;
};

#endif
