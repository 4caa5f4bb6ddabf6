// The main program of every test, and how a test is written. A test program is a line of
// tests/CMakeLists.txt, halcyrix_test(NAME TARGET...), and a source with TEST() and TEST_F() that
// links libraries of this project. The paths of the real programs are macros there. It runs in a
// network of its own, in which every port is free (127.0.0.1 and 127.0.0.2 are the update hosts,
// 127.0.0.1 receives crash reports), as a user for whom file modes hold; all programs may run at
// the same time. gtest and gmock are precompiled.
//
//   support/scratch_dir.h  a folder of its own, files and their contents, a limit on their size
//   support/program.h      a program in a process of its own, and what it says
//   support/game.h         a small game, published and served with the real tool; a player's home
//   support/session.h      one start of the updater in the test's process, with what it told
//   support/relay.h        a peer between updater and server that tampers by rule, one line a lie
//   support/recorders.h    a log and a progress indicator that remember
//   support/screen.h       an X server, windows of other programs, keys (links test_screen)
//   support/gtk_windows.h  windows of the test's own process (links test_screen)
//   support/await.h        an end to every wait: say what is awaited, and it fails after 10 s
//
// Wait for events, never for time to pass. Variations are rows of a table.
#include <unistd.h>

#include <csignal>

#include "tests/support/await.h"

namespace {

std::string awaited;

void GiveUp(int) {
    _exit(write(STDOUT_FILENO, awaited.data(), awaited.size()) > 0 ? 1 : 2);
}

class EndOfEveryTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& test) override {
        fflush(stdout);
        Awaiting(std::string("the end of ") + test.test_suite_name() + "." + test.name());
    }
};

}  // namespace

void Awaiting(const std::string& what) {
    alarm(0);
    awaited = "\nFailure: waited in vain for " + what + "\n";
    alarm(10);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new EndOfEveryTest);
    signal(SIGPIPE, SIG_IGN);  // as the programs do
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGALRM, GiveUp);
    return RUN_ALL_TESTS();
}
