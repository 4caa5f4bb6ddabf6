// What a server tells its operators about itself.
#ifndef HALCYRIX_SERVE_STATUS_FILE_H
#define HALCYRIX_SERVE_STATUS_FILE_H

#include <string>

#include "net/event_loop.h"
#include "serve/update_server.h"

// Writes the server's counts to a file as soon as it is made and then every few seconds, a line for
// each in the text format of Prometheus. Readers find the file whole whenever they look, and none
// when the server has stopped. A file that cannot be written is logged once.
//
// The dispatcher and the server must outlive it.
class StatusFile : private Timer_Event {
public:
    StatusFile(EventLoop* loop, const UpdateServer* server, std::string path);
    ~StatusFile() override;

private:
    void OnTimer(uint64_t now) override;
    void Write(uint64_t now);

    const UpdateServer* m_server;
    std::string m_path;
    bool m_writable = true;
};

#endif
