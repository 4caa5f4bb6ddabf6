// The bytes that wait for a client.
#ifndef HALCYRIX_SERVE_OUTPUT_BUFFER_H
#define HALCYRIX_SERVE_OUTPUT_BUFFER_H

#include <cstdint>
#include <string_view>
#include <vector>

// Frames in the order in which they go out. Its size is bounded by its users: they add while
// HasRoom(), and each addition is one frame at most.
//
//   | sent | waiting ...          | unused |
//   0      m_sent                 m_end
class OutputBuffer {
public:
    bool IsEmpty() const { return m_sent == m_end; }
    bool HasRoom() const { return m_end - m_sent < kEnough; }

    void AddPacket(std::string_view payload);

    // In place of a payload that is known beforehand: room for one of `length` bytes, to be filled
    // before the next call of any kind, or after KeepInPlace() before something is sent.
    uint8_t* AddPacketInPlace(int length);

    // What is added from now on while HasRoom() stays where it is until something is sent.
    void KeepInPlace();

    // Hands as much as the socket takes to it, in one call. Returns the number of bytes, 0 when it
    // takes none now, -1 when the connection is broken.
    int SendTo(int fd);

private:
    static constexpr size_t kEnough = 128 * 1024;

    std::vector<uint8_t> m_bytes;
    size_t m_sent = 0;
    size_t m_end = 0;
};

#endif
