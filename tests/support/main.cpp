// The main program of every test, and how a test is written. A test is a line of
// tests/CMakeLists.txt and a source of that name with TEST() and TEST_F(). The line names the
// libraries it links and the programs it starts; macros hold the paths of these programs. A test
// has a network of its own, where every port is free: 127.0.0.1 and 127.0.0.2 are the update hosts,
// 127.0.0.1 receives crash reports. File modes hold for it, and all tests may run at the same time.
// gtest, gmock and the headers of the system that many tests need are precompiled.
//
//   support/scratch_dir.h  a folder of its own; reading and writing files; a limit on their size
//   support/program.h      a program in a process of its own; a time limit for every wait
//   support/game.h         a small game, published and served by the real tool; a player's home
//   support/session.h      a session of the updater in the test's process, with log and progress
//   support/relay.h        a peer between updater and server that changes packets by a rule
//   support/recorders.h    a log and a progress indicator that keep what they get
//   support/screen.h       an X server, windows of other programs, keys (links test_screen)
//   support/gtk_windows.h  windows of the test's own process (links test_screen)
//
// Wait for events, never for time to pass. Variations are rows of a table.
#include "tests/support/program.h"

namespace {

std::string message;  // written in a signal handler, so it is put together before

void GiveUp(int) { _exit(write(STDERR_FILENO, message.data(), message.size()) > 0 ? 1 : 2); }

class LimitEveryTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        fflush(stdout);
        Awaiting("its end");
    }
};

}  // namespace

void Awaiting(const std::string& what) {
    static const char* const set = getenv("TEST_SECONDS");
    const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
    alarm(0);
    message = "\nFailure: " +
              (test ? std::string(test->test_suite_name()) + "." + test->name() : "the program") +
              " waited in vain for " + what + "\n";
    alarm(set != nullptr ? static_cast<unsigned>(atoi(set)) : 10);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new LimitEveryTest);
    signal(SIGPIPE, SIG_IGN);  // as the programs do
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGALRM, GiveUp);
    return RUN_ALL_TESTS();
}
