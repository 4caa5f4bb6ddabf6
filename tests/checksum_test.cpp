#include "lib/checksum.h"

#include <gtest/gtest.h>

namespace {

TEST(Checksum, GivesTheReferenceValues) {
    const char letters[] = "abcdefghijklmnopqrstuvwxyz";
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 0x2fc57cb2},  {1, 0xd9af4e25},
                                                   {3, 0xa300d213},  {11, 0x777f69ab},
                                                   {12, 0x4fc2032f}, {26, 0xfad6d8d7}};
    for (const auto& [size, expected] : cases) EXPECT_EQ(Checksum(letters, size, 0), expected);
    EXPECT_EQ(Checksum(letters, 26, 0xa5be5705), 0x36f47113u);
}

}  // namespace
