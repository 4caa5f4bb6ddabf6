#include "app/signals.h"

DefaultSignals::DefaultSignals() {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(SIGPIPE, &standard, &m_pipe);
    sigaction(SIGCHLD, &standard, &m_child);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, &m_blocked);
}

DefaultSignals::~DefaultSignals() {
    sigprocmask(SIG_SETMASK, &m_blocked, nullptr);
    sigaction(SIGCHLD, &m_child, nullptr);
    sigaction(SIGPIPE, &m_pipe, nullptr);
}
