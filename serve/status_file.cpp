#include "serve/status_file.h"

#include <unistd.h>

#include <cstdio>
#include <utility>

#include "lib/whole_file.h"
#include "log/gamelog.h"

namespace {

constexpr uint64_t kPeriod = 5000;  // milliseconds

std::string Format(const ServerStatus& status, uint64_t now) {
    std::string text;
    const auto add = [&text](const char* name, uint64_t value) {
        text += "halcyrix_" + std::string(name) + " " + std::to_string(value) + "\n";
    };
    add("releases", status.releases);
    add("sessions", status.sessions);
    add("downloading", status.downloading);
    add("waiting", status.waiting);
    add("bytes_sent_total", status.bytesSent);
    add("sessions_completed_total", status.completed);
    add("sessions_dropped_total", status.dropped);
    add("clients_refused_total", status.refused);
    add("errors_total", status.errors);
    add("status_time_seconds", now / 1000);
    return text;
}

}  // namespace

StatusFile::StatusFile(EventLoop* loop, const UpdateServer* server, std::string path)
    : Timer_Event(loop), m_server(server), m_path(std::move(path)) {
    Schedule(kPeriod);
    Write(EventLoop::Now());
}

StatusFile::~StatusFile() {
    unlink(m_path.c_str());
}

void StatusFile::OnTimer(uint64_t now) {
    Schedule(kPeriod);
    Write(now);
}

void StatusFile::Write(uint64_t now) {
    const std::string temporary = m_path + ".tmp";
    std::string error;
    bool written = WriteWholeFile(temporary, Format(m_server->Status(), now), &error);
    if (written && rename(temporary.c_str(), m_path.c_str()) != 0) {
        error = SystemError(m_path);
        written = false;
    }
    if (!written && std::exchange(m_writable, written)) gamelog->Printf("%s\n", error.c_str());
    m_writable = written;
}
