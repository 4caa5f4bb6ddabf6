// The update client: one object that is the connection to the update server and runs the sessions.
#ifndef HALCYRIX_UPDATE_UPDATE_CLIENT_H
#define HALCYRIX_UPDATE_UPDATE_CLIENT_H

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

// Brings the working directory up to the latest version of a set of components, in a conversation
// with one server of the pool; a lost connection starts the conversation anew on the next one.
//
// While it waits for a reply the client watches for reading alone; while it has work of its own it
// watches for writing too, and the next writable event carries the work on.
//
// Owns its socket, lists and download file. The dispatcher and the indicator must outlive it, and
// it must be idle when it is destroyed. The log must exist.
class UpdateClient : public RXPacketTCP, public Timer_Event {
public:
    UpdateClient(EventLoop* loop, ProgressIndicator* progress);

    void OnWritable() override;
    void OnPacket(const uint8_t* data, int length) override;
    void OnDisconnect() override;
    void OnTimer(uint64_t now) override;

    // Starts a session for the components, given as NUL-terminated strings up to a null pointer.
    // Returns 0 when none was started: one is running, or no server is left to try. Otherwise the
    // indicator's Finished() tells the end, unless no server can be reached.
    int Start(int wantMotd, ...) __attribute__((sentinel));

    // Sets m_localVersion to the version recorded for the components, empty when there is none.
    void ReadVersionRecord();
    // Records m_latestVersion for the components.
    void WriteVersionRecord();

    // Compares a local file with its record: 0 missing or bad, 1 good, 2 of another length, whose
    // tail checksum is then in *checksum_out. *size_out is set when the file could be opened.
    int CheckFile(const FileRecord& record, uint32_t* size_out, uint32_t* checksum_out);

    // Applies every download that is left, in the order of their indexes, as a patch.
    void ApplyPatches();

private:
    // One step of the session. Returns SESSION_COMPLETE when it has ended the session with success,
    // else 0; so does the step of every state, and whatever a step leaves by.
    int HandleEvent(SessionEvent event);
    // `result` is that of the session's last step, and `event` the one it was taken on: the words
    // of success depend on both.
    void EndSession(int result, SessionEvent event);

    // Ways to leave a step: to wait for a reply, to carry on with own work, to fail the session
    // with some last words, or to treat a reply that does not parse as a lost connection.
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

    // Returns whether the payload was handed to the socket. Only the greeting asks: when it is gone
    // later, the next readiness tells.
    int Send(std::string_view payload);

    EventLoop::IO_Entry m_registration{};  // while m_connected
    // A session has been started and has not ended. When no server is left it does not end: it
    // stays set, and no other session can be started.
    int m_connected = 0;
    EventLoop* m_loop;
    SessionState m_state = STATE_IDLE;
    std::list<FileRecord> m_checkList;  // of the server's list, what is still to be checked
    std::list<FileRecord>::iterator m_nextLook;  // the first file not looked at yet
    bool m_lookAhead = true;                     // the last file checked was right
    // By the server's index, in the order in which patches are applied. What a broken conversation
    // announced stays until it is received, or taken for a patch.
    std::map<int32_t, DownloadEntry> m_downloads;
    std::map<int32_t, DownloadEntry>::iterator m_currentDownload = m_downloads.end();
    std::string m_latestVersion;
    std::string m_localVersion;  // empty when none is recorded
    FileRecord m_request;        // what the request under way is about; of a resumed patch, itself
    std::list<std::string> m_components;
    bool m_wantMotd = false;       // ask for the message of the day
    int m_serverIndex = 0;         // of the next host to try
    std::string m_pendingRequest;  // the last request that named something; kept to be looked at
    const uint8_t* m_packet = nullptr;  // valid during the step that handles it
    int m_packetLength = 0;
    ProgressIndicator* m_progress;
    Stream m_file;                 // of m_currentDownload, while its data come
    int64_t m_bytesTotal = 0;      // announced in this conversation
    int64_t m_bytesDone = 0;       // received, or there before and accepted to be resumed
    uint32_t m_receivedCount = 0;  // files, in this session
    size_t m_motdLength = 0;       // received in this conversation
    size_t m_nameBytes = 0;        // kept of the server's names in this conversation
};

#endif
