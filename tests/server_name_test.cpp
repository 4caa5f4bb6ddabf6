#include "lib/server_name.h"

#include <gtest/gtest.h>

namespace {

TEST(ServerNames, LoseTheirFirstComponent) {
    EXPECT_EQ(LocalPath("x/data/file.bin"), "data/file.bin");
    EXPECT_EQ(LocalPath("plain"), "plain");
    EXPECT_EQ(LocalPath("x/"), "");
}

TEST(ServerNames, AreSafeOnlyBelowTheHomeDirectory) {
    const struct {
        std::string name;
        bool safe;
    } cases[] = {
        {"common/data/file.bin", true},
        {"plain", true},
        {"x/..hidden/a..b/...", true},
        {"x/./a//b", true},
        {std::string(4095, 'a'), true},
        {std::string(4096, 'a'), false},
        {"", false},
        {"x/", false},
        {"/", false},
        {"/etc/passwd", false},
        {"x//etc/passwd", false},
        {"..", false},
        {"../a", false},
        {"x/..", false},
        {"x/../a", false},
        {"x/a/../b", false},
        {"x/a/..", false},
    };
    for (const auto& c : cases) EXPECT_EQ(IsSafeServerName(c.name), c.safe) << c.name;
}

}  // namespace
