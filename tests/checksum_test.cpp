#include "lib/checksum.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(Checksum, GivesTheReferenceValues) {
    const std::string letters = "abcdefghijklmnopqrstuvwxyz";
    const struct {
        std::string input;
        uint32_t initial;
        uint32_t expected;
    } cases[] = {
        {"", 0, 0x2fc57cb2},      {"a", 0, 0xd9af4e25},
        {"abc", 0, 0xa300d213},   {letters.substr(0, 12), 0, 0x4fc2032f},
        {letters, 0, 0xfad6d8d7}, {letters, 0xa5be5705, 0x36f47113},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Checksum(c.input.data(), static_cast<uint32_t>(c.input.size()), c.initial),
                  c.expected)
            << "\"" << c.input << "\" from " << c.initial;
    }
}

}  // namespace
