// The main program of every test.
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
    void OnTestEnd(const testing::TestInfo&) override { alarm(0); }
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
