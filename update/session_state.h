// The states and events of an update session.
#pragma once

#include <array>
#include <cstddef>

enum SessionState : int {
    STATE_IDLE,        // no session
    STATE_INERT,       // what an empty return stack gives
    STATE_CONNECTING,  // the connection, or its timeout
    STATE_MOTD,        // message-of-the-day packets
    STATE_VERSION,     // the latest version
    STATE_FILE_LIST,   // file-list entries
    STATE_VERIFY,      // own work: check the next file, fetching whole files
    STATE_NEGOTIATE,   // own work: check the next file, asking for patches
    STATE_CSUM_REPLY,
    STATE_FULL_REPLY,
    STATE_PATC_REPLY,
    STATE_SEND_RSUM,  // own work: send the resume request
    STATE_RSUM_REPLY,
    STATE_QUEUE,        // queue status
    STATE_SEND_DOWN,    // own work: send the download start
    STATE_DOWN_HEADER,  // a download header
    STATE_DOWN_DATA,    // download data
    STATE_ENDING,       // the step that set it ends the session
};

enum SessionEvent : int {
    EVENT_WRITABLE = 1,
    EVENT_PACKET = 2,
    EVENT_TIMER = 3,
};

// The result of a step that ended the session with success; all others return 0. Arbitrary, so no
// flag or count passes for it.
constexpr int SESSION_COMPLETE = 204;

// The states to go back to when a request has been answered. A push onto a full stack is dropped;
// a pop from an empty one gives STATE_INERT.
class ReturnStack {
public:
    void Push(SessionState state) {
        if (m_size < m_states.size()) m_states[m_size++] = state;
    }
    SessionState Pop() { return m_size > 0 ? m_states[--m_size] : STATE_INERT; }
    void Clear() { m_size = 0; }

private:
    std::array<SessionState, 10> m_states{};
    size_t m_size = 0;
};

// The one stack of the process; emptied whenever a conversation starts anew.
extern ReturnStack s_returnStates;
