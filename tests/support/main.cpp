// The main program of every test.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "tests/support/patience.h"

namespace {

char awaited[256];

void GiveUp(int) {
    constexpr char kWords[] = "\nFailure: waited in vain for ";
    if (write(STDOUT_FILENO, kWords, sizeof kWords - 1) < 0) _exit(2);
    if (write(STDOUT_FILENO, awaited, strlen(awaited)) < 0) _exit(2);
    _exit(1);
}

unsigned Await(const std::string& what, unsigned seconds) {
    snprintf(awaited, sizeof awaited, "%s\n", what.c_str());
    return alarm(seconds);
}

class EndOfEveryTest : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& test) override {
        fflush(stdout);
        Await(std::string("the end of ") + test.test_suite_name() + "." + test.name(), 30);
    }
};

}  // namespace

Patience::Patience(const std::string& what, unsigned seconds)
    : m_outer(awaited, strcspn(awaited, "\n")), m_left(Await(what, seconds)) {}

Patience::~Patience() {
    Await(m_outer, m_left);
}

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new EndOfEveryTest);
    signal(SIGPIPE, SIG_IGN);  // as the programs do
    signal(SIGXFSZ, SIG_IGN);
    signal(SIGALRM, GiveUp);
    return RUN_ALL_TESTS();
}
