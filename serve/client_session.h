// One client of the update server.
#ifndef HALCYRIX_SERVE_CLIENT_SESSION_H
#define HALCYRIX_SERVE_CLIENT_SESSION_H

#include <netinet/in.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "serve/download_queue.h"
#include "serve/download_stream.h"
#include "serve/event_tools.h"
#include "serve/metrics.h"
#include "store/release.h"
#include "update/messages.h"

class UpdateServer;

// "address:port".
std::string AddressText(const sockaddr_in& peer);

// Answers a client's requests, strictly in the order that the protocol gives them; whatever else
// arrives ends the session. What waits for the client is of bounded size: long replies, the file
// list and the download stream, are made as the socket takes them.
//
// The server owns the session and outlives it. It is destroyed when it ends, by End(), which each
// of its handlers therefore calls last.
class ClientSession {
public:
    // Takes over the accepted descriptor, which is non-blocking.
    ClientSession(UpdateServer* server, evutil_socket_t fd, const sockaddr_in& peer);
    ~ClientSession();
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    // Its turn has come.
    void Admit();
    // Where it stands in the line.
    void TellPlace(const QueueStatus& status);

    // Leaves the server and writes the session's line to the log. Destroys the session.
    void End(Ending ending);

    bool HoldsSlot() const { return m_state == READY || m_state == DOWNLOADING; }
    evutil_socket_t Descriptor() const { return bufferevent_getfd(m_connection.get()); }
    const sockaddr_in& Peer() const { return m_peer; }
    DownloadQueue::Ticket QueueTicket() const { return m_ticket; }

private:
    void OnReadable();
    void OnDrained();
    void OnHangup(short what);
    void OnDeadline();

    // Each tells how the session goes on.
    Ending Answer(const Request& request);
    Ending AnswerVersion();
    Ending AnswerFileRequest(const Request& request);
    Ending AnswerResume(const ResumeRequest& resume);
    void AnswerMotd();
    Ending FillOutput();
    void FillFileList(evbuffer* output);

    bool HoldsComponent(const std::string& component) const;
    const ReleaseFile* FindListed(const std::string& name) const;
    Ending AddDownload(uint32_t index);

    void Enter(ClientState state);
    evbuffer* Output() const { return bufferevent_get_output(m_connection.get()); }
    bool OutputIsEmpty() const { return evbuffer_get_length(Output()) == 0; }
    uint64_t BytesSent() const { return m_bytesMade - evbuffer_get_length(Output()); }
    void Send(std::string_view payload);
    void CountSent();
    std::string Summary() const;

    UpdateServer* m_server;
    Owned<bufferevent> m_connection;
    Owned<event> m_deadline;
    sockaddr_in m_peer;
    ClientState m_state = CONNECTED;
    bool m_motdTold = false;
    bool m_mayResume = false;  // the last reply announced a download
    std::list<std::string> m_components;
    std::shared_ptr<const Release> m_release;
    std::string m_installedVersion;
    std::list<std::string>::const_iterator m_listedComponent;
    size_t m_listedFiles = 0;  // of that component
    DownloadStream m_downloads;
    bool m_streamMade = false;
    DownloadQueue::Ticket m_ticket = 0;
    Clock::time_point m_started;
    Clock::time_point m_joined;   // the line, or later its slot
    uint64_t m_bytesMade = 0;     // for sending
    uint64_t m_bytesCounted = 0;  // of those sent, in the server's counts
    uint64_t m_bytesWatched = 0;  // of those sent, when the rate was looked at
};

#endif
