#include "serve/output_buffer.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "net/frame.h"

void OutputBuffer::AddPacket(std::string_view payload) {
    uint8_t* place = AddPacketInPlace(static_cast<int>(payload.size()));
    memcpy(place, payload.data(), payload.size());
}

uint8_t* OutputBuffer::AddPacketInPlace(int length) {
    const size_t end = m_end + kFrameHeaderSize + static_cast<size_t>(length);
    if (m_bytes.size() < end) m_bytes.resize(end);
    uint8_t* frame = m_bytes.data() + m_end;
    PutFrameHeader(frame, length);
    m_end = end;
    return frame + kFrameHeaderSize;
}

void OutputBuffer::KeepInPlace() {
    m_bytes.resize(std::max(m_bytes.size(), m_sent + kEnough + kMaxFrame));
}

int OutputBuffer::SendTo(int fd) {
    const ssize_t sent = send(fd, m_bytes.data() + m_sent, m_end - m_sent, MSG_NOSIGNAL);
    if (sent == -1) return errno == EAGAIN || errno == EINTR ? 0 : -1;
    m_sent += static_cast<size_t>(sent);
    if (IsEmpty()) {
        m_sent = 0;
        m_end = 0;
    } else if (m_sent >= kEnough) {
        memmove(m_bytes.data(), m_bytes.data() + m_sent, m_end - m_sent);
        m_end -= m_sent;
        m_sent = 0;
    }
    return static_cast<int>(sent);
}
