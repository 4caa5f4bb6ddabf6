// The main program of tests that need a network or file systems of their own.
#include <gtest/gtest.h>

#include <csignal>

#include "tests/support/private_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    signal(SIGPIPE, SIG_IGN);  // as the programs do
    EnterPrivateNetwork();
    return RUN_ALL_TESTS();
}
