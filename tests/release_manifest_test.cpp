#include "release/manifest.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include "lib/checksum.h"

namespace {

Manifest Sample() {
    Manifest manifest;
    manifest.sequence = 7;
    manifest.version = "1.4-\xC3\xA4/..";
    manifest.firstIndex = 300;
    manifest.components = {"common", "common-extra", "empty", "linux64"};
    // Sorted by name, "common-extra" comes before "common".
    manifest.files = {{"common-extra/b", 1, 0, 300},
                      {"common/a b/c", 0x0badf00d, 0xFFFFFFFF, 301},
                      {"linux64/halcyrix", 2, 3, 302}};
    manifest.patches = {{"common/a b/c", "1.2", 3, 4, 303},
                        {"common/a b/c", "1.3", 5, 6, 304},
                        {"linux64/halcyrix", "1.3", 7, 8, 305}};
    return manifest;
}

bool Accepts(const std::string& text) {
    Manifest manifest;
    std::string error;
    const bool accepted = ParseManifest(text, &manifest, &error);
    EXPECT_EQ(accepted, error.empty());
    return accepted;
}

TEST(Manifest, IsReadBackAsItWasWritten) {
    const std::string text = FormatManifest(Sample());
    Manifest manifest;
    std::string error;
    ASSERT_TRUE(ParseManifest(text, &manifest, &error)) << error;
    EXPECT_EQ(FormatManifest(manifest), text);
    EXPECT_EQ(manifest.version, Sample().version);
    EXPECT_EQ(manifest.files[1].name, "common/a b/c");
    EXPECT_EQ(manifest.patches[2].fromVersion, "1.3");
    EXPECT_EQ(manifest.NextIndex(), 306u);
}

TEST(Manifest, IsRefusedWhenCutShortOrDamagedAnywhere) {
    const std::string text = FormatManifest(Sample());
    for (size_t size = 0; size < text.size(); ++size) {
        EXPECT_FALSE(Accepts(text.substr(0, size))) << size;
    }
    for (size_t i = 0; i < text.size(); ++i) {
        for (int bit = 0; bit < 8; ++bit) {
            std::string damaged = text;
            damaged[i] = static_cast<char>(damaged[i] ^ 1 << bit);
            EXPECT_FALSE(Accepts(damaged)) << "bit " << bit << " of byte " << i;
        }
    }
    EXPECT_FALSE(Accepts(text + "\n"));
}

// Of a manifest with a right last line, as somebody's own program could write it.
TEST(Manifest, IsRefusedWithAnImpossibleEntry) {
    const struct {
        const char* fault;
        std::function<void(Manifest*)> make;
    } cases[] = {
        {"no sequence number", [](Manifest* m) { m->sequence = 0; }},
        {"a version with a blank", [](Manifest* m) { m->version = "1 4"; }},
        {"a version with a line", [](Manifest* m) { m->version = "1\nfirst-index 3"; }},
        {"unsorted components", [](Manifest* m) { std::swap(m->components[0], m->components[1]); }},
        {"a component twice", [](Manifest* m) { m->components[1] = "common"; }},
        {"unsorted files", [](Manifest* m) { m->files[0].name = "common/z"; }},
        {"a file twice", [](Manifest* m) { m->files[0].name = m->files[1].name; }},
        {"a file of no component", [](Manifest* m) { m->files[2].name = "linux65/halcyrix"; }},
        {"a file without component", [](Manifest* m) { m->files[2].name = "linux64"; }},
        {"a file outside", [](Manifest* m) { m->files[2].name = "linux64/../../x"; }},
        {"a skipped index", [](Manifest* m) { m->files[1].index = 302; }},
        {"a patch with a file's index", [](Manifest* m) { m->patches[0].index = 302; }},
        {"no checksum", [](Manifest* m) { m->files[0].checksum = kNoChecksum; }},
        {"a patch of no file", [](Manifest* m) { m->patches[2].name = "linux64/other"; }},
        {"a patch twice", [](Manifest* m) { m->patches[1].fromVersion = "1.2"; }},
        {"indexes beyond the last",
         [](Manifest* m) {
             m->firstIndex = 0xFFFFFFFC;
             uint32_t index = m->firstIndex;
             for (ReleaseFile& file : m->files) file.index = index++;
             for (ReleasePatch& patch : m->patches) patch.index = index++;
         }},
    };
    for (const auto& c : cases) {
        Manifest manifest = Sample();
        c.make(&manifest);
        EXPECT_FALSE(Accepts(FormatManifest(manifest))) << c.fault;
    }
}

TEST(Manifest, IsRefusedWhenANumberIsWrittenInAnotherWay) {
    const std::string text = FormatManifest(Sample());
    for (const auto& [from, to] : {std::pair("sequence 7", "sequence 07"),
                                   {" 0badf00d", " 0BADF00D"},
                                   {" 0badf00d", " badf00d"},
                                   {"next-index 306", "next-index +306"},
                                   {"component empty\n", "component empty\n\n"}}) {
        std::string other = text.substr(0, text.rfind("end "));
        other.replace(other.find(from), strlen(from), to);
        char last[16];
        snprintf(last, sizeof last, "end %08x\n",
                 Checksum(other.data(), static_cast<uint32_t>(other.size()), kFileChecksumStart));
        EXPECT_FALSE(Accepts(other + last)) << to;
    }
}

}  // namespace
