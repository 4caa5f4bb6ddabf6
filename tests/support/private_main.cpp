// The main program of tests that need a network or file systems of their own.
#include <gtest/gtest.h>

#include "tests/support/private_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    EnterPrivateNetwork();
    return RUN_ALL_TESTS();
}
