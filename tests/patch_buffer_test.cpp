#include "lib/patch_buffer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <fstream>
#include <optional>
#include <sstream>

#include "tests/support/scratch_dir.h"

namespace {

std::string Number(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

std::string Copy(uint32_t offset, uint32_t length) {
    return "C" + Number(offset) + Number(length);
}

std::string Literal(const std::string& data) {
    return "L" + Number(static_cast<uint32_t>(data.size())) + data;
}

// What the interpreter says on standard output, and the new contents unless it refuses.
struct Outcome {
    std::optional<std::string> contents;
    std::string said;
};

// Runs a patch over the file "old".
Outcome RunPatch(const std::string& patch) {
    WriteFile("patch", patch);
    testing::internal::CaptureStdout();
    Outcome outcome;
    PatchBuffer patched;
    if (patched.Load("patch", "old") && patched.WriteFile("new", nullptr)) {
        outcome.contents = ReadFile("new");
    }
    outcome.said = testing::internal::GetCapturedStdout();
    return outcome;
}

// The same with strings, as the format's description has it.
std::optional<std::string> Model(std::string current, const std::string& patch) {
    std::string output;
    size_t at = 0;
    const auto number = [&](uint64_t* value) {
        if (patch.size() - at < 4) return false;
        *value = 0;
        for (const size_t end = at + 4; at < end; ++at) {
            *value = *value * 256 + static_cast<uint8_t>(patch[at]);
        }
        return true;
    };
    while (at < patch.size()) {
        uint64_t offset, length;
        switch (patch[at++]) {
            case 'C':
                if (!number(&offset) || !number(&length)) return std::nullopt;
                if (offset + length > current.size()) return std::nullopt;
                output += current.substr(offset, length);
                break;
            case 'L':
                if (!number(&length) || length > patch.size() - at) return std::nullopt;
                output += patch.substr(at, length);
                at += length;
                break;
            case 'R':
                if (!output.empty()) current = std::exchange(output, {});
                break;
            default: return std::nullopt;
        }
    }
    return output.empty() ? current : output;
}

TEST(Patch, RunsItsCommands) {
    ScratchDir scratch;
    const std::string old = SeededBytes(100, 1);
    WriteFile("old", old);
    const struct {
        std::string patch;
        std::optional<std::string> contents;
        std::string said = "";
    } cases[] = {
        {"", old},
        {Literal("hello") + "R", "hello"},
        {Copy(10, 20) + "R", old.substr(10, 20)},
        {Copy(0, 100) + Literal("") + Copy(100, 0) + "RRR", old},
        {Literal("abc") + Copy(0, 2) + "R" + Copy(1, 2) + "R", "bc"},
        {Literal("hi"), "hi", "warning: no terminator on patch patch\n"},
        {Literal("hi") + "Rc", std::nullopt, "Unknown patch command 63 in patch!\naborting..."},
        {Copy(0, 101) + "R", std::nullopt},
        {Copy(101, 0) + "R", std::nullopt},
        {Copy(0xFFFFFFFF, 1) + "R", std::nullopt},
        {Copy(1, 0xFFFFFFFF) + "R", std::nullopt},
        {Literal("abc") + "R" + Copy(1, 3) + "R", std::nullopt},
        {"L" + Number(3) + "ab", std::nullopt},
        {"L" + Number(0xFFFFFFFF) + "R", std::nullopt},
    };
    for (const auto& c : cases) {
        const Outcome outcome = RunPatch(c.patch);
        EXPECT_EQ(outcome.contents, c.contents) << testing::PrintToString(c.patch);
        EXPECT_EQ(outcome.said, c.said);
    }
}

TEST(Patch, DoesWhatTheFormatSaysWhateverIsDamagedOrCutOff) {
    ScratchDir scratch;
    const std::string old = SeededBytes(300, 2);
    WriteFile("old", old);
    const std::string patch = Copy(5, 200) + Literal("some data") + Copy(0, 300) + "R" +
                              Copy(100, 400) + Literal("L") + Copy(0, 7) + "R";
    ASSERT_TRUE(Model(old, patch));
    for (size_t at = 0; at < patch.size(); ++at) {
        std::vector<std::string> variations = {patch.substr(0, at)};
        for (const int change : {0x01, 0x0F, 0x11, 0x1E, 0x80, 0xFF}) {
            variations.push_back(patch);
            variations.back()[at] = static_cast<char>(patch[at] ^ change);
        }
        for (const std::string& variation : variations) {
            EXPECT_EQ(RunPatch(variation).contents, Model(old, variation))
                << testing::PrintToString(variation);
        }
    }
}

TEST(Patch, NeedsBothFiles) {
    ScratchDir scratch;
    std::filesystem::create_directory("directory");
    WriteFile("file", "R");
    for (const char* other : {"missing", "directory"}) {
        EXPECT_FALSE(PatchBuffer().Load(other, "file"));
        EXPECT_FALSE(PatchBuffer().Load("file", other));
    }
}

TEST(Patch, StaysBelow4GiB) {
    ScratchDir scratch;
    WriteFile("old", "");
    const auto loads = [](uint64_t oldSize, const std::string& patch) {
        std::filesystem::resize_file("old", oldSize);  // takes no room: the file is all hole
        WriteFile("patch", patch);
        return PatchBuffer().Load("patch", "old");
    };
    const uint32_t half = 0x80000000;
    EXPECT_TRUE(loads(half, Copy(0, half) + Copy(0, half - 1) + "R"));
    EXPECT_FALSE(loads(half, Copy(0, half) + Copy(0, half) + "R" + Copy(0, 1) + "R"));
    EXPECT_TRUE(loads(0xFFFFFFFF, ""));
    EXPECT_FALSE(loads(0x100000000, ""));
}

TEST(Patch, DoesNotMultiplyItsSpansWithoutEnd) {
    ScratchDir scratch;
    WriteFile("old", "x");
    std::string patch;
    for (uint32_t length = 1; length < 0x80000000; length *= 2) {
        patch += Copy(0, length) + Copy(0, length) + "R";
    }
    WriteFile("patch", patch);
    EXPECT_FALSE(PatchBuffer().Load("patch", "old"));
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    EXPECT_LT(usage.ru_maxrss, 1024 * 1024) << "KiB";
}

// The bytes of a fenced block in the document of the format: hexadecimal, with remarks after two
// blanks.
std::string DocumentedBytes(const std::string& name) {
    std::ifstream document(HALCYRIX_SOURCE_DIR "/docs/patch-format.md");
    std::string bytes;
    bool inside = false;
    for (std::string line; std::getline(document, line);) {
        if (line.starts_with("```")) {
            inside = line == "```" + name;
        } else if (inside) {
            std::istringstream digits(line.substr(0, line.find("  ")));
            for (int byte; digits >> std::hex >> byte;) bytes += static_cast<char>(byte);
        }
    }
    return bytes;
}

TEST(Patch, DoesWhatItsDocumentShows) {
    ScratchDir scratch;
    WriteFile("old", DocumentedBytes("old"));
    EXPECT_EQ(ReadFile("old"), "The quick brown fox");
    const Outcome outcome = RunPatch(DocumentedBytes("patch"));
    EXPECT_EQ(outcome.contents, "The red fox fox");
    EXPECT_EQ(outcome.contents, DocumentedBytes("new"));
    EXPECT_EQ(outcome.said, "");
}

}  // namespace
