// What the documents show, said to the real programs.

#include "tests/support/game.h"

namespace {

TEST_F(GameTest, HasTheConversationThatTheProtocolShows) {
    const std::string song = "The quick brown fox jumps over the lazy dog";
    Publish("1.0", {{"common/song.txt", song}});
    Publish("1.1", {{"common/song.txt", song + "."}, {"common/new.txt", "hello"}});
    WriteFile("motd", "Welcome.\n");
    const ServingProgram server(StorePath(), "127.0.0.1", {"--motd", "motd"});
    const sockaddr_in address{AF_INET, htons(21024), {htonl(INADDR_LOOPBACK)}, {}};
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    std::ifstream document(SOURCE_DIR "/docs/protocol.md");
    std::vector<std::string> frames;  // each behind the letter of who sends it
    std::string line;
    while (std::getline(document, line) && line != "```session") continue;
    while (std::getline(document, line) && line != "```") {
        if (line[0] != ' ') frames.emplace_back(1, line[0]);
        const size_t begin = line.find_first_not_of(' ', 1);
        std::istringstream digits(line.substr(begin, line.find("  ", begin) - begin));
        for (int byte; digits >> std::hex >> byte;) frames.back() += static_cast<char>(byte);
    }
    ASSERT_EQ(frames.size(), 25u);
    for (const std::string& frame : frames) {
        std::string bytes = frame.substr(1);
        EXPECT_EQ(frame[0] == 'C' ? send(fd, bytes.data(), bytes.size(), 0)
                                  : recv(fd, bytes.data(), bytes.size(), MSG_WAITALL),
                  ssize_t(bytes.size()));
        ASSERT_EQ(frame.substr(1), bytes);
    }
    close(fd);
}

}  // namespace
