// The bytes of a connection, cut into reads anywhere: the packets must be those of the whole
// stream.
//
// Input: the size of the first read, then the stream.

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "net/packet_tcp.h"
#include "tests/support/quiet.h"

namespace {

class Receiver : public RXPacketTCP {
public:
    explicit Receiver(int32_t fd) : RXPacketTCP(fd, IO_READ) { SetNonBlocking(fd); }
    void OnPacket(const uint8_t* data, int length) override {
        packets.emplace_back(reinterpret_cast<const char*>(data), static_cast<size_t>(length));
    }
    void OnDisconnect() override {}

    std::vector<std::string> packets;
};

std::vector<std::string> Split(const std::string& stream) {
    std::vector<std::string> packets;
    for (size_t at = 0; stream.size() - at >= kFrameHeaderSize;) {
        const int length = FramePayloadLength(reinterpret_cast<const uint8_t*>(&stream[at]));
        const size_t frame = kFrameHeaderSize + static_cast<size_t>(length);
        if (length > kMaxPayload || stream.size() - at < frame) break;
        packets.push_back(stream.substr(at + kFrameHeaderSize, static_cast<size_t>(length)));
        at += frame;
    }
    return packets;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    const QuietLog log;
    const std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) abort();
    Receiver receiver(ends[0]);
    size_t piece = data[0] + 1;
    for (size_t at = 0; at < stream.size() && receiver.IsOpen();
         at += piece, piece = piece * 3 % 977 + 1) {
        piece = std::min(piece, stream.size() - at);
        if (send(ends[1], &stream[at], piece, MSG_NOSIGNAL) != static_cast<ssize_t>(piece)) abort();
        receiver.OnReadable();
    }
    close(ends[1]);
    if (receiver.packets != Split(stream)) abort();
    return 0;
}
