// One client of the update server.
#ifndef HALCYRIX_SERVE_CLIENT_SESSION_H
#define HALCYRIX_SERVE_CLIENT_SESSION_H

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "net/packet_tcp.h"
#include "serve/download_stream.h"
#include "serve/output_buffer.h"
#include "store/store.h"
#include "update/messages.h"

class UpdateServer;

// Answers a client's requests, strictly in the order that the protocol gives them; whatever else
// arrives ends the session. Replies wait in a buffer of bounded size: long ones, the file list and
// the download stream, are made as the socket takes them.
//
// The server owns the session and outlives it. A session that has ended does nothing any more, and
// is destroyed by the server outside of its handlers.
class ClientSession : public RXPacketTCP {
public:
    // Takes over the accepted descriptor.
    ClientSession(UpdateServer* server, int32_t fd, const sockaddr_in& peer);

    void OnPacket(const uint8_t* data, int length) override;
    void OnWritable() override;
    void OnDisconnect() override;

    // Its turn has come.
    void Admit();
    // It stands at `position` of the line.
    void TellPlace(uint16_t position, uint16_t queueLength, uint16_t rate);

    // Hangs up and writes the session's line to the log, with what went wrong unless `fault` is
    // empty. One that was never used is passed over. Ends nothing twice.
    void End(const std::string& fault);

    // The clock reading at which bytes last moved.
    uint64_t LastActivity() const { return m_lastActivity; }

    uint64_t BytesSent() const { return m_bytesSent; }

    EventLoop::IO_Entry registration{};

private:
    enum State {
        GREETING,     // nothing has been said
        COMPONENTS,   // greeted; components are being named
        MOTD_TOLD,    // the version request comes next
        LISTING,      // the file list is being sent
        NEGOTIATING,  // requests for files
        QUEUED,       // waits for a slot
        READY,        // has a slot; the download start comes next
        STREAMING,    // the downloads are being sent
        STREAMED,     // they have been; the client hangs up next
        ENDED,
    };

    bool Answer(const Request& request);
    bool AnswerVersion();
    bool AnswerFileRequest(const Request& request);
    bool AnswerResume(const ResumeRequest& resume);
    void AnswerMotd();

    bool HoldsComponent(const std::string& component) const;
    const ReleaseFile* FindListed(const std::string& name) const;
    bool AddDownload(Download download);

    void Send(std::string_view payload) { m_output.AddPacket(payload); }
    void FillOutput();
    void FillFileList();
    void Flush();
    std::string Summary() const;

    UpdateServer* m_server;
    std::string m_address;
    State m_state = GREETING;
    std::list<std::string> m_components;
    std::shared_ptr<const Release> m_release;
    std::string m_installedVersion;
    std::list<std::string>::const_iterator m_listedComponent;
    size_t m_listedFiles = 0;  // of that component
    DownloadStream m_downloads;
    bool m_mayResume = false;  // the last reply announced a download
    OutputBuffer m_output;
    uint64_t m_started;
    uint64_t m_lastActivity;
    uint64_t m_bytesSent = 0;
};

#endif
