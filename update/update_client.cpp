#include "update/update_client.h"

#include "log/gamelog.h"

ReturnStack s_returnStates;

UpdateClient::UpdateClient(EventLoop* loop, ProgressIndicator* progress)
    : Timer_Event(loop), m_loop(loop), m_progress(progress) {}

void UpdateClient::OnWritable() {
    const int result = HandleEvent(EVENT_WRITABLE);
    if (m_state == STATE_ENDING) EndSession(result, WRITABLE);
}

void UpdateClient::OnPacket(const uint8_t* data, int length) {
    // Packets that were received together with the one at which the client hung up.
    if (!IsOpen()) return;
    m_packet = data;
    m_packetLength = length;
    const int result = HandleEvent(EVENT_PACKET);
    if (m_state == STATE_ENDING) EndSession(result, PACKET);
}

void UpdateClient::OnTimer(uint64_t) {
    HandleEvent(EVENT_TIMER);
}

// The whole session at a glance. What is not named here is ignored.
int UpdateClient::HandleEvent(SessionEvent event) {
    if (m_state == STATE_CONNECTING) return StepConnecting(event);
    if (event == EVENT_WRITABLE) {
        switch (m_state) {
            case STATE_VERIFY: return StepVerify();
            case STATE_NEGOTIATE: return StepNegotiate();
            case STATE_SEND_RSUM: return StepSendResume();
            case STATE_SEND_DOWN: return StepSendDownload();
        }
    }
    if (event == EVENT_PACKET) {
        switch (m_state) {
            case STATE_MOTD: return StepMotd();
            case STATE_VERSION: return StepVersion();
            case STATE_FILE_LIST: return StepFileList();
            case STATE_CSUM_REPLY: return StepChecksumReply();
            case STATE_FULL_REPLY: return StepFullReply();
            case STATE_PATC_REPLY: return StepPatchReply();
            case STATE_RSUM_REPLY: return StepResumeReply();
            case STATE_QUEUE: return StepQueue();
            case STATE_DOWN_HEADER: return StepDownloadHeader();
            case STATE_DOWN_DATA: return StepDownloadData();
        }
    }
    return 0;
}

void UpdateClient::EndSession(int result, Manner manner) {
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
    const bool nothingNew = manner == PACKET && m_receivedCount == 0;
    m_progress->SetStatus(nothingNew ? "Halcyrix is up to date." : "Update complete.");
    m_progress->Finished(static_cast<int32_t>(m_receivedCount));
}

void UpdateClient::WaitForReply(SessionState state) {
    SetFlags(IO_READ);
    m_state = state;
}

void UpdateClient::CarryOn(int state) {
    SetFlags(IO_READ | IO_WRITE);
    m_state = state;
}

int UpdateClient::Fail() {
    m_state = STATE_ENDING;
    return 0;
}

int UpdateClient::RefuseName(const std::string& name) {
    gamelog->Printf("refusing the name %s from the server!  aborting!\n", name.c_str());
    return Fail();
}

int UpdateClient::RefuseExcess(const char* what) {
    gamelog->Printf("the server sends %s without end!  aborting!\n", what);
    return Fail();
}

int UpdateClient::MalformedReply() {
    gamelog->Printf("Malformed reply from the server; disconnecting\n");
    OnDisconnect();
    return 0;
}

int UpdateClient::SendText(std::string_view payload) {
    return SendPacket(payload.data(), static_cast<int>(payload.size()));
}
