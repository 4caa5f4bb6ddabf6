// What the documents show, said to the real programs.
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <sstream>

#include "tests/support/game.h"

namespace {

class Documents : public GameTest {
protected:
    // The lines of a fenced block.
    static std::vector<std::string> Lines(const std::string& document, const std::string& block) {
        const std::string text = ReadFile(SOURCE_DIR "/docs/" + document);
        const size_t begin = text.find("\n```" + block + "\n") + block.size() + 5;
        std::istringstream inside(text.substr(begin, text.find("```\n", begin) - begin));
        std::vector<std::string> lines;
        for (std::string line; std::getline(inside, line);) lines.push_back(line);
        return lines;
    }
    // Hexadecimal bytes up to a remark, which two blanks precede.
    static std::string Bytes(const std::string& line) {
        const size_t begin = line.find_first_not_of(' ');
        std::istringstream digits(line.substr(begin, line.find("  ", begin) - begin));
        std::string bytes;
        for (int byte; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
        return bytes;
    }
};

TEST_F(Documents, HaveTheServersWords) {
    const std::string song = "The quick brown fox jumps over the lazy dog";
    Publish("1.0", {{"common/song.txt", song}});
    Publish("1.1", {{"common/song.txt", song + "."}, {"common/new.txt", "hello"}});
    WriteFile("motd", "Welcome.\n");
    const ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "motd"});
    const sockaddr_in address{AF_INET, htons(21024), {htonl(INADDR_LOOPBACK)}, {}};
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::vector<std::string> example;  // frames, each behind the letter of who sends it
    for (const std::string& line : Lines("protocol.md", "session")) {
        if (line[0] != ' ') example.emplace_back(1, line[0]);
        example.back() += Bytes(line.substr(1));
    }
    for (const std::string& frame : example) {
        std::string bytes = frame.substr(1);
        EXPECT_EQ(frame[0] == 'C' ? send(fd, bytes.data(), bytes.size(), 0)
                                  : recv(fd, bytes.data(), bytes.size(), MSG_WAITALL),
                  ssize_t(bytes.size()));
        ASSERT_EQ(frame.substr(1), bytes);
    }
    close(fd);
}

}  // namespace
