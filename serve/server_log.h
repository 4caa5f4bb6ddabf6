// The server's log.
#ifndef HALCYRIX_SERVE_SERVER_LOG_H
#define HALCYRIX_SERVE_SERVER_LOG_H

#include <cstddef>

#include "log/gamelog.h"

// Writes to standard output like its base. Where nobody reads there, a line is waited for once and
// then lines are passed over until somebody does, who is told how many are missing: a reader that
// hangs must not stop the service. Lines must be shorter than a page of memory.
class ServerLog : public GameLog {
public:
    void Print(const char* text) override;

private:
    size_t m_lost = 0;
};

#endif
