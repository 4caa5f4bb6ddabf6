// The example of docs/protocol.md, said to the real server and to the real client.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "lib/checksum.h"
#include "serve/update_server.h"
#include "tests/support/recorders.h"
#include "tests/support/sample_store.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/scripted_server.h"
#include "update/update_client.h"

namespace {

constexpr char kBefore[] = "The quick brown fox jumps over the lazy dog";
constexpr char kAfter[] = "The quick brown fox jumps over the lazy dog.";

// The lines of a fenced block.
std::vector<std::string> Documented(const std::string& block) {
    std::ifstream document(HALCYRIX_SOURCE_DIR "/docs/protocol.md");
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("```")) {
            inside = line == "```" + block;
        } else if (inside) {
            lines.push_back(line);
        }
    }
    return lines;
}

// One packet of the example.
struct Said {
    char who;
    std::string frame;

    std::string Payload() const { return frame.substr(kFrameHeaderSize); }
};

std::vector<Said> DocumentedSession() {
    std::vector<Said> session;
    for (const std::string& line : Documented("session")) {
        if (line[0] != ' ') session.push_back({line[0], ""});
        const size_t bytes = line.find_first_not_of(' ', 1);
        std::istringstream digits(line.substr(bytes, line.find("  ", bytes) - bytes));
        for (int byte; digits >> std::hex >> byte;) {
            session.back().frame += static_cast<char>(byte);
        }
    }
    return session;
}

// Says the client's part, and compares what comes back byte by byte.
class DocumentedClient : public RXTCP {
public:
    explicit DocumentedClient(EventLoop* loop) : m_loop(loop), m_session(DocumentedSession()) {
        EXPECT_EQ(Connect("127.0.0.1", kUpdatePort), 1);
        m_entry = m_loop->AddIO(this);
    }
    ~DocumentedClient() override { m_loop->RemoveIO(m_entry); }

    void OnWritable() override {
        SetFlags(IO_READ);
        Speak();
    }

    void OnReadable() override {
        char bytes[8192];
        const ssize_t got = recv(m_fd, bytes, sizeof bytes, 0);
        if (got > 0) m_heard.append(bytes, static_cast<size_t>(got));
        while (m_next < m_session.size() && m_heard.starts_with(m_session[m_next].frame)) {
            m_heard.erase(0, m_session[m_next++].frame.size());
            Speak();
        }
        const bool goesOn =
            m_next < m_session.size() && m_session[m_next].frame.starts_with(m_heard);
        if (got > 0 && goesOn) return;
        EXPECT_EQ(m_next, m_session.size()) << "the packets that are as documented";
        EXPECT_EQ(m_heard, "");
        m_loop->Stop(0);
    }

private:
    void Speak() {
        for (; m_next < m_session.size() && m_session[m_next].who == 'C'; ++m_next) {
            const std::string& frame = m_session[m_next].frame;
            EXPECT_EQ(send(m_fd, frame.data(), frame.size(), 0),
                      static_cast<ssize_t>(frame.size()));
        }
    }

    EventLoop* m_loop;
    EventLoop::IO_Entry m_entry;
    const std::vector<Said> m_session;
    size_t m_next = 0;
    std::string m_heard;
};

TEST(ProtocolDocument, HasTheServersWords) {
    const ScratchDir scratch;
    WriteFile("game/song.txt", kBefore);
    ASSERT_EQ(PublishSample("1.0", {{"common", "game"}}), "");
    WriteFile("game/song.txt", kAfter);
    WriteFile("game/new.txt", "hello");
    ASSERT_EQ(PublishSample("1.1", {{"common", "game"}}), "");
    WriteFile("motd", "Welcome.\n");

    RecordingLog log;
    EventLoop loop;
    const auto store = OpenSample();
    ServerOptions options;
    options.address = htonl(INADDR_LOOPBACK);
    options.motdFile = "motd";
    UpdateServer server(&loop, store.get(), options);
    const DocumentedClient client(&loop);
    loop.Run();
    EXPECT_FALSE(log.Has("dropped")) << log.Text();
}

// One session of a real client, in the working directory; returns the number of files received.
int32_t RunClient(bool wantMotd, ScriptedServer::Script script) {
    RecordingLog log;
    EventLoop loop;
    RecordingProgress progress;
    progress.onFinished = [&loop](int) { loop.Stop(0); };
    const ScriptedServer server(&loop, "127.0.0.1", std::move(script));
    UpdateClient client(&loop, &progress);
    EXPECT_EQ(client.Start(wantMotd, "common", nullptr), 1);
    loop.Run();
    return progress.results.back();
}

TEST(ProtocolDocument, HasTheClientsWords) {
    const ScratchDir home;
    HonestScript before;
    before.version = "1.0";
    before.files["common/song.txt"] = kBefore;
    ASSERT_EQ(RunClient(false, before), 1);

    const std::vector<Said> session = DocumentedSession();
    size_t next = 0;
    const int32_t received = RunClient(true, [&](ScriptedPeer& peer, const std::string& request) {
        ASSERT_LT(next, session.size());
        EXPECT_EQ(session[next].who, 'C');
        EXPECT_EQ(session[next++].Payload(), request);
        for (; next < session.size() && session[next].who == 'S'; ++next) {
            peer.SendRaw(session[next].frame);
        }
    });
    EXPECT_EQ(next, session.size());
    EXPECT_EQ(received, 2);
    EXPECT_EQ(ReadFile("song.txt"), kAfter);
    EXPECT_EQ(ReadFile("new.txt"), "hello");
}

TEST(ProtocolDocument, HasTheChecksums) {
    for (const std::string& line : Documented("checksums")) {
        const auto start = static_cast<uint32_t>(std::stoul(line.substr(0, 8), nullptr, 16));
        const std::string text = line.substr(9, line.rfind(' ') - 9);
        const auto expected =
            static_cast<uint32_t>(std::stoul(line.substr(line.rfind(' ')), nullptr, 16));
        EXPECT_EQ(Checksum(text.data(), static_cast<uint32_t>(text.size()), start), expected)
            << line;
    }
    EXPECT_EQ(Documented("checksums").size(), 3u);
}

}  // namespace
