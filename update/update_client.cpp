#include "update/update_client.h"

#include <cstdarg>

#include "log/gamelog.h"

ReturnStack s_returnStates;

UpdateClient::UpdateClient(EventLoop* loop, ProgressIndicator* progress)
    : Timer_Event(loop), m_loop(loop), m_progress(progress) {}

void UpdateClient::OnWritable() {
    const int result = HandleEvent(EVENT_WRITABLE);
    if (m_state == STATE_ENDING) EndSession(result, EVENT_WRITABLE);
}

void UpdateClient::OnPacket(const uint8_t* data, int length) {
    // Packets received together with the one that ended the connection.
    if (!IsOpen()) return;
    m_packet = data;
    m_packetLength = length;
    const int result = HandleEvent(EVENT_PACKET);
    if (m_state == STATE_ENDING) EndSession(result, EVENT_PACKET);
}

void UpdateClient::OnTimer(uint64_t) { HandleEvent(EVENT_TIMER); }

// The whole session at a glance. Other pairs of state and event are ignored.
int UpdateClient::HandleEvent(SessionEvent event) {
    const bool packet = event == EVENT_PACKET;
    const bool writable = event == EVENT_WRITABLE;
    switch (m_state) {
        case STATE_IDLE:
        case STATE_INERT:
        case STATE_ENDING: return 0;
        case STATE_CONNECTING: return StepConnecting(event);
        case STATE_MOTD: return packet ? StepMotd() : 0;
        case STATE_VERSION: return packet ? StepVersion() : 0;
        case STATE_FILE_LIST: return packet ? StepFileList() : 0;
        case STATE_VERIFY: return writable ? StepVerify() : 0;
        case STATE_NEGOTIATE: return writable ? StepNegotiate() : 0;
        case STATE_CSUM_REPLY: return packet ? StepChecksumReply() : 0;
        case STATE_FULL_REPLY: return packet ? StepFullReply() : 0;
        case STATE_PATC_REPLY: return packet ? StepPatchReply() : 0;
        case STATE_SEND_RSUM: return writable ? StepSendResume() : 0;
        case STATE_RSUM_REPLY: return packet ? StepResumeReply() : 0;
        case STATE_QUEUE: return packet ? StepQueue() : 0;
        case STATE_SEND_DOWN: return writable ? StepSendDownload() : 0;
        case STATE_DOWN_HEADER: return packet ? StepDownloadHeader() : 0;
        case STATE_DOWN_DATA: return packet ? StepDownloadData() : 0;
    }
    return 0;
}

void UpdateClient::EndSession(int result, SessionEvent event) {
    m_file.reset();
    Close();
    m_loop->RemoveIO(m_registration);
    m_connected = 0;
    m_state = STATE_IDLE;
    if (result != SESSION_COMPLETE) {
        m_progress->SetStatus("Update failed.");
        m_progress->Finished(-1);
        return;
    }
    const bool nothingNew = event == EVENT_PACKET && m_receivedCount == 0;
    m_progress->SetStatus(nothingNew ? "Halcyrix is up to date." : "Update complete.");
    m_progress->Finished(static_cast<int32_t>(m_receivedCount));
}

void UpdateClient::WaitForReply(SessionState state) {
    SetFlags(IO_READ);
    m_state = state;
}

void UpdateClient::CarryOn(SessionState state) {
    SetFlags(IO_READ | IO_WRITE);
    m_state = state;
}

int UpdateClient::Abort(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    gamelog->VPrintf(format, arguments);
    va_end(arguments);
    m_state = STATE_ENDING;
    return 0;
}

int UpdateClient::MalformedReply() {
    gamelog->Printf("Malformed reply from the server; disconnecting\n");
    OnDisconnect();
    return 0;
}

int UpdateClient::Send(std::string_view payload) {
    return SendPacket(payload.data(), static_cast<int>(payload.size()));
}
