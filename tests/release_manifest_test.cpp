#include "store/manifest.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "lib/checksum.h"

namespace {

// Sorted by name, "common-extra" comes before "common".
const char kBody[] =
    "halcyrix-release 1\nsequence 7\nversion 1.4-\xC3\xA4/..\nfirst-index 300\n"
    "component common\ncomponent common-extra\ncomponent empty\ncomponent linux64\n"
    "file 300 00000001 0 common-extra/b\n"
    "file 301 0badf00d 4294967295 common/a b/c\n"
    "file 302 00000002 3 linux64/halcyrix\n"
    "patch 303 00000003 4 1.2 common/a b/c\n"
    "patch 304 00000005 6 1.3 common/a b/c\n"
    "patch 305 00000007 8 1.3 linux64/halcyrix\n"
    "next-index 306\n";

std::string Sealed(const std::string& body) {
    char last[16];
    snprintf(last, sizeof last, "end %08x\n",
             Checksum(body.data(), static_cast<uint32_t>(body.size()), kFileChecksumStart));
    return body + last;
}

bool Accepts(const std::string& text) {
    Manifest manifest;
    std::string error;
    const bool accepted = ParseManifest(text, &manifest, &error);
    EXPECT_EQ(accepted, error.empty());
    return accepted;
}

TEST(Manifest, IsReadWholeAndRefusedWhenCutOrDamagedAnywhere) {
    const std::string text = Sealed(kBody);
    EXPECT_TRUE(Accepts(text));
    EXPECT_FALSE(Accepts(text + "\n"));
    for (size_t i = 0; i < text.size(); ++i) {
        EXPECT_FALSE(Accepts(text.substr(0, i))) << i;
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = text;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << bit);
            EXPECT_FALSE(Accepts(damaged)) << "bit " << bit << " of byte " << i;
        }
    }
}

// With a right last line, as somebody's own program could write it.
TEST(Manifest, IsRefusedWithAnImpossibleEntry) {
    const std::pair<std::string, std::string> changes[] = {
        {"sequence 7", "sequence 0"},
        {"version 1.4", "version 1 4"},
        {"component common-extra", "component common"},
        {"component common\ncomponent common-extra", "component common-extra\ncomponent common"},
        {"common-extra/b", "common/z"},
        {"common-extra/b", "common/a b/c"},
        {"3 linux64/halcyrix", "3 linux65/halcyrix"},
        {"3 linux64/halcyrix", "3 linux64/../../x"},
        {"file 301", "file 302"},
        {"patch 303", "patch 302"},
        {"300 00000001", "300 ffffffff"},
        {"8 1.3 linux64/halcyrix", "8 1.3 linux64/other"},
        {"6 1.3 common", "6 1.2 common"},
        {"next-index 306", "next-index 307"}};
    for (const auto& [from, to] : changes) {
        std::string body = kBody;
        body.replace(body.find(from), from.size(), to);
        EXPECT_FALSE(Accepts(Sealed(body))) << to;
    }
}

}  // namespace
