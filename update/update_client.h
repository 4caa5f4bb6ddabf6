// The update client: the connection to the update server and the session over it.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>

#include "lib/local_file_check.h"
#include "lib/progress_indicator.h"
#include "lib/stream.h"
#include "net/event_loop.h"
#include "net/packet_tcp.h"
#include "update/records.h"
#include "update/session_state.h"

// Brings the working directory up to the latest version of a set of components. Talks to one server
// of the pool; after a lost connection it starts again with the next.
//
// While it waits for a reply, the client watches for reading only. While it has work of its own, it
// watches for writing too, and the next writable event continues the work.
//
// Owns its socket, lists and download file. The dispatcher, the indicator and the log must outlive
// it. Must be idle when it is destroyed.
class UpdateClient : public RXPacketTCP, public Timer_Event {
public:
    UpdateClient(EventLoop* loop, ProgressIndicator* progress);

    void OnWritable() override;
    void OnPacket(const uint8_t* data, int length) override;
    void OnDisconnect() override;
    void OnTimer(uint64_t now) override;

    // Starts a session for the components, NUL-terminated strings up to a null pointer. Returns 0
    // when a session is running or no server is left to try. Otherwise the session ends with the
    // indicator's Finished(), unless no server can be reached.
    int Start(int wantMotd, ...) __attribute__((sentinel));

    // Sets m_localVersion to the version recorded for the components, empty when there is none.
    void ReadVersionRecord();
    // Records m_latestVersion for the components.
    void WriteVersionRecord();

    // Compares a local file with its record. Returns 0 for missing or bad, 1 for good, 2 for
    // another length; *checksum_out then has the tail checksum. Sets *size_out when the file can be
    // opened.
    int CheckFile(const FileRecord& record, uint32_t* size_out, uint32_t* checksum_out);

    // Applies every remaining download as a patch, in index order.
    void ApplyPatches();

private:
    // One step of the session. Returns SESSION_COMPLETE after success, else 0; so do all steps.
    int HandleEvent(SessionEvent event);
    // `result` and `event` are those of the last step; the status text depends on both.
    void EndSession(int result, SessionEvent event);

    // Ways to end a step: wait for a reply, continue own work, log and fail the session, or treat a
    // malformed reply as a lost connection.
    void WaitForReply(SessionState state);
    void CarryOn(SessionState state);
    int Abort(const char* format, ...) __attribute__((format(printf, 2, 3)));
    int MalformedReply();

    // connecting.cpp: reaching a server.
    int ConnectNext();
    void PrintUnreachable();
    int StepConnecting(SessionEvent event);

    // greeting.cpp: from the greeting to the end of the file list.
    bool SendGreeting();
    void RequestVersion();
    int StepMotd();
    int StepVersion();
    int StepFileList();
    void DecideByVersion();

    // negotiating.cpp: what each file needs.
    void StartChecks(SessionState state);
    void LookAhead(std::chrono::steady_clock::time_point until);
    bool FindWrongFile(LocalFileCheck* found);
    int FinishChecks();
    void RequestFull(const FileRecord& record, SessionState returnState);
    void RequestPatch(const FileRecord& record, SessionState returnState);
    void SendRequest(const FileRecord& record, SessionState returnState, SessionState replyState);
    void AddDownload(uint32_t index, uint32_t length, DownloadEntry entry);
    int StepVerify();
    int StepNegotiate();
    int StepChecksumReply();
    int StepFullReply();
    int StepPatchReply();
    int StepSendResume();
    int StepResumeReply();

    // downloading.cpp: the queue and the download stream.
    int RequestQueue();
    void ShowProgress();
    int StepQueue();
    int StepSendDownload();
    int StepDownloadHeader();
    int StepDownloadData();
    int FinishDownloads();

    // Returns whether the payload was sent. Only the greeting looks: a later loss shows at the next
    // read.
    int Send(std::string_view payload);

    EventLoop::IO_Entry m_registration{};  // while m_connected
    // A session has started and has not ended. Stays set when no server is left, so no other
    // session can start.
    int m_connected = 0;
    EventLoop* m_loop;
    SessionState m_state = STATE_IDLE;
    std::list<FileRecord> m_checkList;  // files of the server's list that still await their check
    std::list<FileRecord>::iterator m_nextLook;  // the first file not looked at yet
    bool m_lookAhead = true;                     // the last file checked was right
    // By the server's index. Entries of a broken conversation stay until they are received or
    // treated as patches.
    std::map<int32_t, DownloadEntry> m_downloads;
    std::map<int32_t, DownloadEntry>::iterator m_currentDownload = m_downloads.end();
    std::string m_latestVersion;
    std::string m_localVersion;  // empty when none is recorded
    FileRecord m_request;        // of the outstanding request; for a resumed patch, the patch
    std::list<std::string> m_components;
    bool m_wantMotd = false;            // ask for the message of the day
    int m_serverIndex = 0;              // of the next host to try
    std::string m_pendingRequest;       // the last request with a name, for debugging
    const uint8_t* m_packet = nullptr;  // valid during the step that handles it
    int m_packetLength = 0;
    ProgressIndicator* m_progress;
    Stream m_file;                 // of m_currentDownload, while its data arrive
    int64_t m_bytesTotal = 0;      // announced in this conversation
    int64_t m_bytesDone = 0;       // received, or accepted for resuming
    uint32_t m_receivedCount = 0;  // files, in this session
    size_t m_motdLength = 0;       // received in this conversation
    size_t m_nameBytes = 0;        // of the server's names kept in this conversation
};
