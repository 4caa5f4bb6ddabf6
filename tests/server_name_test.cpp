#include "lib/server_name.h"

#include <gtest/gtest.h>

namespace {

TEST(ServerNames, LoseTheirFirstComponent) {
    EXPECT_EQ(LocalPath("x/data/file.bin"), "data/file.bin");
    EXPECT_EQ(LocalPath("plain"), "plain");
    EXPECT_EQ(LocalPath("x/"), "");
}

TEST(ServerNames, AreSafeOnlyBelowTheHomeDirectory) {
    for (const std::string& name :
         {std::string("common/data/file.bin"), std::string("plain"),
          std::string("x/..hidden/a..b/..."), std::string("x/./a//b"), std::string(4095, 'a')}) {
        EXPECT_TRUE(IsSafeServerName(name)) << name;
    }
    for (const char* name : {"", "x/", "/", "/etc/passwd", "x//etc/passwd", "..", "../a", "x/..",
                             "x/../a", "x/a/../b", "x/a/..", "../x/a"}) {
        EXPECT_FALSE(IsSafeServerName(name)) << name;
    }
    EXPECT_FALSE(IsSafeServerName(std::string(4096, 'a')));
}

}  // namespace
