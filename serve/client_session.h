// One client of the update server.
#pragma once

#include <netinet/in.h>

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "serve/client_state.h"
#include "serve/download_stream.h"
#include "serve/session_context.h"
#include "store/release.h"
#include "update/messages.h"

// Answers a client's requests in the order that the protocol prescribes; anything else ends the
// session. Its output is of bounded size: the file list and the download stream are made as the
// socket takes them.
//
// End() destroys the session, so each handler calls it last.
class ClientSession : public Waiter {
public:
    // Takes over the accepted descriptor, which is non-blocking. The peer is the client, counted in
    // the context, or a proxy that is going to name and count it.
    ClientSession(SessionContext* context, evutil_socket_t fd, const sockaddr_in& peer,
                  bool proxied);
    ~ClientSession() override;
    ClientSession(const ClientSession&) = delete;
    ClientSession& operator=(const ClientSession&) = delete;

    void Admit() override;
    void TellPlace(const QueueStatus& status) override;

    // Leaves the queue, logs the session and destroys it.
    void End(Ending ending);

    bool HoldsSlot() const { return m_state == READY || m_state == DOWNLOADING; }
    evutil_socket_t Descriptor() const { return bufferevent_getfd(m_connection.get()); }

private:
    void OnReadable();
    Ending TakeProxyHeader();
    void OnDrained();
    void OnHangup(short what);
    void OnDeadline();

    // GOES_ON, or why the session must end.
    Ending Answer(const Request& request);
    Ending AnswerVersion();
    Ending AnswerFileRequest(const Request& request);
    Ending AnswerResume(const ResumeRequest& resume);
    // Sends the message of the day, cut at 64 KiB, with its final NUL.
    void AnswerMotd();
    Ending FillOutput();
    void FillFileList(evbuffer* output);

    Ending AddDownload(uint32_t index);

    void Enter(ClientState state);
    evbuffer* Output() const { return bufferevent_get_output(m_connection.get()); }
    bool OutputIsEmpty() const { return evbuffer_get_length(Output()) == 0; }
    uint64_t BytesSent() const { return m_bytesMade - evbuffer_get_length(Output()); }
    void Send(std::string_view payload);
    void CountSent();
    std::string Summary() const;

    SessionContext* m_context;
    Owned<bufferevent> m_connection;
    Owned<event> m_deadline;
    sockaddr_in m_peer;
    bool m_proxied;  // the PROXY header comes next
    ClientState m_state = CONNECTED;
    bool m_motdTold = false;
    bool m_mayResume = false;  // the last reply announced a download
    std::list<std::string> m_components;
    std::shared_ptr<const Release> m_release;
    std::string m_installedVersion = "-";
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
