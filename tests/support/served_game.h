// A game that is published with the maker's tool and served to updaters.
#ifndef HALCYRIX_TESTS_SUPPORT_SERVED_GAME_H
#define HALCYRIX_TESTS_SUPPORT_SERVED_GAME_H

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "serve/update_server.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_disk.h"
#include "update/update_client.h"

using Tree = std::map<std::string, std::string>;  // contents by "component/path"

Tree FirstGame();
// The next version: changed in places, with files that come and go.
Tree Changed(Tree tree);

// Checks that the tree is installed in the working directory.
void ExpectTree(const Tree& tree);

// A store in a scratch directory.
class StoreTest : public testing::Test {
protected:
    void Publish(const std::string& version, const Tree& tree);
    std::string StorePath() const { return (scratch.Path() / "store").string(); }

    ScratchDisk scratch;
    std::unique_ptr<Store> store;
};

ServerOptions OnHost(const char* address);

// The maker's tool as it serves a store on 127.0.0.1, in a process of its own.
class ServingProgram {
public:
    explicit ServingProgram(const std::string& store);
    // Asks it to stop, and waits until it has.
    ~ServingProgram();
    ServingProgram(const ServingProgram&) = delete;
    ServingProgram& operator=(const ServingProgram&) = delete;

    pid_t Pid() const { return m_pid; }

    // Waits until it has logged `count` lines with the text since the last call.
    void AwaitLines(const std::string& text, int count);

    // How many descriptors it has open when it is done with all that came before. Passes over the
    // log until then.
    long SettledDescriptors();

private:
    pid_t m_pid;
    FILE* m_log;
};

// A player's updater in the game's session. Its home is the working directory.
struct Player {
    explicit Player(EventLoop* loop) : client(loop, &progress) {}

    void Start() { ASSERT_EQ(client.Start(1, "linux64", "common", nullptr), 1); }
    bool Done() const { return !progress.results.empty(); }

    RecordingProgress progress;
    UpdateClient client;
};

// Stops the dispatcher when the condition holds; it is asked between the handlers.
class StopWhen : public Poll_Event {
public:
    StopWhen(EventLoop* loop, std::function<bool()> condition)
        : Poll_Event(loop), m_condition(std::move(condition)) {
        Register();
    }
    ~StopWhen() override { Unregister(); }
    void OnPoll() override {
        if (m_condition()) m_loop->Stop(0);
    }

private:
    std::function<bool()> m_condition;
};

#endif
