// What the documents show, said to the real programs.
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>

#include "lib/checksum.h"
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/session.h"

namespace {

// The lines of a fenced block.
std::vector<std::string> Documented(const std::string& document, const std::string& block) {
    std::ifstream text(SOURCE_DIR "/docs/" + document);
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```"))
            inside = line == "```" + block;
        else if (inside)
            lines.push_back(line);
    }
    EXPECT_FALSE(lines.empty()) << block;
    return lines;
}

// Hexadecimal bytes up to a remark, which two blanks precede.
std::string Bytes(const std::string& line) {
    const size_t begin = line.find_first_not_of(' ');
    std::istringstream digits(line.substr(begin, line.find("  ", begin) - begin));
    std::string bytes;
    for (int byte; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
    return bytes;
}

// The frames of the protocol's example, each behind the letter of who sends it.
std::vector<std::string> Example() {
    std::vector<std::string> frames;
    for (const std::string& line : Documented("protocol.md", "session")) {
        if (line[0] == ' ')
            frames.back() += Bytes(line);
        else
            frames.push_back(line[0] + Bytes(line.substr(1)));
    }
    return frames;
}

class Documents : public GameTest {};

const std::string kSong = "The quick brown fox jumps over the lazy dog";

TEST_F(Documents, HaveTheServersWords) {
    Publish("1.0", {{"common/song.txt", kSong}});
    Publish("1.1", {{"common/song.txt", kSong + "."}, {"common/new.txt", "hello"}});
    WriteFile("motd", "Welcome.\n");
    const ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "motd"});
    const sockaddr_in address{AF_INET, htons(21024), {htonl(INADDR_LOOPBACK)}, {}};
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    for (const std::string& frame : Example()) {
        const std::string expected = frame.substr(1);
        if (frame[0] == 'C') {
            EXPECT_EQ(send(fd, expected.data(), expected.size(), 0), ssize_t(expected.size()));
            continue;
        }
        std::string heard(expected.size(), '\0');
        EXPECT_EQ(recv(fd, heard.data(), heard.size(), MSG_WAITALL), ssize_t(heard.size()));
        ASSERT_EQ(heard, expected);
    }
    close(fd);
}

TEST_F(Documents, HaveTheClientsWords) {
    WriteFile("song.txt", kSong);
    WriteFile("halcyrix.lfv", "00000000 1.0\n");
    const std::vector<std::string> example = Example();
    size_t next = 0;
    Relay server([&](const Passing& request) {
        EXPECT_EQ(example.at(next++), "C" + FrameOf(request.payload));
        Instead replies;
        while (next < example.size() && example[next][0] == 'S') {
            replies.bytes += example[next++].substr(1);
        }
        return replies;
    });
    Session session;
    EXPECT_EQ(session.client.Start(1, "common", nullptr), 1);
    EXPECT_EQ(session.Run(), 2);
    EXPECT_EQ(next, example.size());
    EXPECT_EQ(ReadFile("song.txt"), kSong + ".");
    EXPECT_EQ(ReadFile("new.txt"), "hello");
}

TEST_F(Documents, HaveTheChecksumsAndAPatch) {
    for (const std::string& line : Documented("protocol.md", "checksums")) {
        const auto hex = [&](size_t at) {
            return uint32_t(std::stoul(line.substr(at), nullptr, 16));
        };
        const std::string text = line.substr(9, line.rfind(' ') - 9);
        EXPECT_EQ(Checksum(text.data(), uint32_t(text.size()), hex(0)), hex(line.rfind(' ')))
            << line;
    }
    for (const char* file : {"old", "patch", "new"}) {
        std::string contents;
        for (const std::string& line : Documented("patch-format.md", file)) contents += Bytes(line);
        WriteFile(file, contents);
    }
    EXPECT_EQ(RunProgram({RELEASE_TOOL, "apply", "old", "patch", "result"}), 0);
    EXPECT_EQ(ReadFile("result"), ReadFile("new"));
    EXPECT_EQ(ReadFile("result"), "The red fox fox");
}

}  // namespace
