// The server's log.
#pragma once

#include <cstddef>
#include <string>

#include "log/gamelog.h"

// Writes to standard output like its base, each control character within the line as "?". A reader
// that is stuck delays one line by a second; later lines are dropped, and counted in a line of
// their own when it reads again. Lines must be shorter than a page of memory.
class ServerLog : public GameLog {
public:
    void Print(const char* text) override;

private:
    size_t m_lost = 0;
};

// What strangers can cause as often as they like: Tell() logs the first text since its last call,
// and the number of the others.
class Notices {
public:
    void Add(const std::string& text);
    void Tell();

private:
    std::string m_first;
    size_t m_count = 0;
};
