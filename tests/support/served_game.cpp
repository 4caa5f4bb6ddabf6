#include "tests/support/served_game.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <set>

#include "tests/support/memory_use.h"
#include "tests/support/programs.h"

namespace fs = std::filesystem;

Tree FirstGame() {
    Tree tree = {{"linux64/halcyrix", SeededBytes(100000, 1)},
                 {"linux64/drivers/lib.so", SeededBytes(8190 * 3, 2)},
                 {"common/manual.html", "<html>The manual.</html>\n"},
                 {"common/empty", ""}};
    for (uint32_t i = 0; i < 300; ++i) {
        tree["common/data/" + std::to_string(i)] = SeededBytes(100 + i * 37, 1000 + i);
    }
    return tree;
}

Tree Changed(Tree tree) {
    for (uint32_t i = 0; i < 300; i += 7) {
        tree["common/data/" + std::to_string(i)].insert(50, "a change");
    }
    tree["linux64/halcyrix"].replace(5000, 100, SeededBytes(150, 3));
    tree.erase("common/data/1");
    tree["common/data/new"] = SeededBytes(3000, 4);
    return tree;
}

void ExpectTree(const Tree& tree) {
    for (const auto& [name, data] : tree) {
        EXPECT_TRUE(ReadFile(name.substr(name.find('/') + 1)) == data) << name;
    }
}

void StoreTest::Publish(const std::string& version, const Tree& tree) {
    fs::remove_all(scratch.Path() / "tree");
    std::vector<std::string> command = {RELEASE_TOOL, "publish", StorePath(), version};
    std::set<std::string> components;
    for (const auto& [name, data] : tree) {
        WriteFile(scratch.Path() / "tree" / name, data);
        components.insert(name.substr(0, name.find('/')));
    }
    for (const std::string& component : components) {
        command.push_back(component + "=" + (scratch.Path() / "tree" / component).string());
    }
    std::string output;
    ASSERT_EQ(RunProgram(command, &output), 0) << output;
    std::string error;
    store = Store::Open(StorePath(), &error);
    ASSERT_TRUE(store) << error;
}

ServerOptions OnHost(const char* address) {
    ServerOptions options;
    options.address = inet_addr(address);
    return options;
}

ServingProgram::ServingProgram(const std::string& store) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
    fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);  // its log must not wait for the test to read it
    m_pid = fork();
    if (m_pid == 0) {
        dup2(ends[1], STDOUT_FILENO);
        execl(RELEASE_TOOL, RELEASE_TOOL, "serve", store.c_str(), "--listen", "127.0.0.1", nullptr);
        _exit(127);
    }
    close(ends[1]);
    m_log = fdopen(ends[0], "r");
    AwaitLines("serving ", 1);
}

ServingProgram::~ServingProgram() {
    kill(m_pid, SIGTERM);
    int status = 0;
    waitpid(m_pid, &status, 0);
    EXPECT_EQ(status, 0);
    fclose(m_log);
}

void ServingProgram::AwaitLines(const std::string& text, int count) {
    char line[1024];
    while (count > 0 && fgets(line, sizeof line, m_log) != nullptr) {
        if (strstr(line, text.c_str()) != nullptr) --count;
    }
    EXPECT_EQ(count, 0) << "lines with " << text << " are missing";
}

long ServingProgram::SettledDescriptors() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kUpdatePort);
    address.sin_addr.s_addr = inet_addr("127.0.0.1");
    EXPECT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    constexpr char kGreetingFrame[] = "\0\5PVERA";  // a visit without a word is not logged
    EXPECT_EQ(send(fd, kGreetingFrame, 7, MSG_NOSIGNAL), 7);
    shutdown(fd, SHUT_WR);
    char byte;
    EXPECT_EQ(recv(fd, &byte, 1, 0), 0);
    close(fd);
    AwaitLines("hung up early", 1);
    return OpenDescriptors(m_pid);
}
