#include "lib/server_name.h"

#include <gtest/gtest.h>

namespace {

TEST(ServerNames, AreSafeOnlyBelowTheHomeDirectory) {
    const std::string safe[] = {"common/data/file.bin", "plain", "x/..hidden/a..b/...", "x/./a//b",
                                std::string(4095, 'a')};
    for (const std::string& name : safe) EXPECT_TRUE(IsSafeServerName(name)) << name;
    const std::string unsafe[] = {
        "",       "x/",       "/",      "/etc/passwd", "x//etc/passwd",       "..", "../a", "x/..",
        "x/../a", "x/a/../b", "x/a/..", "../x/a",      std::string(4096, 'a')};
    for (const std::string& name : unsafe) EXPECT_FALSE(IsSafeServerName(name)) << name;
}

}  // namespace
