// A whole session with a server that sends anything, over a socket pair, with real files. Nothing
// outside the home directory may change.
//
// Input: the installation that the session finds, then packets, each a length and its payload; the
// length 255 stands for a full packet of file data.

#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "tests/support/recorders.h"
#include "tests/support/relay.h"
#include "tests/support/scratch_dir.h"
#include "update/update_client.h"

namespace {

namespace fs = std::filesystem;

constexpr uint8_t kFullPacket = 255;

void Install(uint8_t kind) {
    fs::remove_all("home");
    fs::create_directory("home");
    fs::current_path("home");
    if (kind & 1) WriteFile("halcyrix.lfv", "9fcdf44f 1.0\n");
    if (kind & 2) WriteFile("f", "old contents");
    if (kind & 4) WriteFile("p", "L");
}

// The test's own end of the client's connection.
class Server : public RecordingProgress {
public:
    Server() { m_client.Start(1, "linux64", "common", nullptr); }
    ~Server() override { close(m_fd); }

    // Takes the place of the host that the client is connecting to.
    void Accept() {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) abort();
        dup2(ends[0], m_client.m_fd);
        close(ends[0]);
        SetNonBlocking(m_client.m_fd);
        m_fd = ends[1];
        LetClientWork();
    }

    bool IsConnected() const { return m_connections == 1 && m_client.m_fd != -1; }

    void Send(const std::string& payload) {
        const std::string frame = FrameOf(payload);
        const auto size = static_cast<ssize_t>(frame.size());
        if (send(m_fd, frame.data(), frame.size(), MSG_NOSIGNAL) != size) abort();
        m_client.OnReadable();
        LetClientWork();
    }

    void SetStatus(const char* text) override {
        m_connections += strncmp(text, "Connecting", 10) == 0;
    }

private:
    void LetClientWork() {
        while (IsConnected() && (m_client.m_flags & IO_WRITE)) m_client.OnWritable();
        char heard[16384];
        while (recv(m_fd, heard, sizeof heard, MSG_DONTWAIT) > 0) continue;
    }

    RecordingLog m_log;
    EventLoop m_loop;
    int m_connections = 0;
    UpdateClient m_client{&m_loop, this};
    int m_fd = -1;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ScratchDir scratch;
    if (size == 0) return 0;
    signal(SIGPIPE, SIG_IGN);
    fs::current_path(scratch.Path());
    Install(data[0]);
    {
        Server server;
        server.Accept();
        for (size_t at = 1; at < size && server.IsConnected();) {
            const uint8_t length = data[at++];
            const size_t there = std::min<size_t>(length, size - at);
            if (length == kFullPacket) {
                server.Send(std::string(kMaxPayload, 'x'));
            } else {
                server.Send(std::string(reinterpret_cast<const char*>(data) + at, there));
                at += there;
            }
        }
    }
    fs::current_path(scratch.Path());
    for (const auto& entry : fs::directory_iterator(".")) {
        if (entry.path() != "./home") abort();
    }
    return 0;
}
