// What the launcher decides without a window.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

#include "app/browser.h"
#include "app/elf_check.h"
#include "app/home.h"
#include "app/updater_copy.h"
#include "app/utf8_filter.h"
#include "tests/support/scratch_dir.h"

namespace {

TEST(Utf8Filter, LosesNoValidByteAndMarksInvalidOnes) {
    const struct {
        std::vector<std::string> pieces;
        std::string shown, finish;
    } cases[] = {
        {{"plain\n", "", "text"}, "plain\ntext", ""},
        {{"\xC3", "\xA9"}, "\u00E9", ""},
        {{"a\xE2", "\x82", "\xAC!"}, "a\u20AC!", ""},
        {{"\xF0\x9F", "\x98\x80"}, "\U0001F600", ""},
        {{"\xE2\x82", "x"}, "\uFFFDx", ""},  // never finished
        {{"\xE2\x82", "\xE2\x82\xAC"}, "\uFFFD\u20AC", ""},
        {{"\xF0\x9F\x98"}, "", "\uFFFD"},                              // unfinished at the end
        {{"\x80\xBF"}, "\uFFFD\uFFFD", ""},                            // nothing to continue
        {{"\xC0\xAF"}, "\uFFFD\uFFFD", ""},                            // overlong
        {{"\xE0\x9F\xBF"}, "\uFFFD\uFFFD\uFFFD", ""},                  // overlong
        {{"\xED\xA0\x80"}, "\uFFFD\uFFFD\uFFFD", ""},                  // surrogate
        {{"\xF4\x90\x80\x80", "z"}, "\uFFFD\uFFFD\uFFFD\uFFFDz", ""},  // beyond U+10FFFF
        {{"caf\xE9 au"}, "caf\uFFFD au", ""},                          // another encoding
    };
    for (const auto& c : cases) {
        Utf8Filter filter;
        std::string shown;
        for (const std::string& piece : c.pieces) shown += filter.Filter(piece);
        EXPECT_EQ(shown, c.shown);
        EXPECT_EQ(filter.Finish(), c.finish) << c.shown;
    }
    EXPECT_EQ(ValidUtf8("end\xC3"), "end\uFFFD");
}

TEST(Utf8Filter, GivesTheSameTextHoweverItIsCut) {
    const std::string text = "1 \u00E9 \u20AC \U0001F600 \xFF \xE2\x82 2";
    for (size_t cut = 0; cut <= text.size(); ++cut) {
        Utf8Filter filter;
        std::string shown = filter.Filter(text.substr(0, cut));
        shown += filter.Filter(text.substr(cut));
        EXPECT_EQ(shown, ValidUtf8(text)) << "cut at " << cut;
    }
}

TEST(BrowserCommand, TakesTheAddressInPlaceOfFourMarks) {
    const struct {
        std::string browser, command;
    } cases[] = {
        {"firefox %s", "firefox A"},
        {"%s %s %s %s %s", "A A A A %s"},
        {"lynx", "lynx"},
        {"one:two %s", "one:two A"},
        {"say 100%% %s", "say 100% A"},
        {"%%s %d %n %", "%s %d %n %"},
        {"", ""},
        {std::string(3000, 'x'), std::string(2047, 'x')},
        {std::string(2046, 'x') + "%s%s", std::string(2046, 'x') + "A"},
    };
    for (const auto& c : cases) EXPECT_EQ(ExpandBrowserCommand(c.browser, "A"), c.command);
    EXPECT_EQ(ExpandBrowserCommand("%s", "file:/%s%d"), "file:/%s%d");
}

TEST(UpdaterCopy, IsKnownByTheEndOfItsName) {
    for (const char* name : {"update.rlb", "./update.rlb", "/a/b/update.rlb", "myupdate.rlb"}) {
        EXPECT_TRUE(IsUpdaterCopyName(name)) << name;
    }
    for (const char* name : {"", "pdate.rlb", "update.rlb2", "UPDATE.RLB", "update.rlb/x"}) {
        EXPECT_FALSE(IsUpdaterCopyName(name)) << name;
    }
    EXPECT_FALSE(IsUpdaterCopyName(nullptr));
}

TEST(ElfCheck, FindsEveryCutThatTheSystemWouldStart) {
    const ScratchDir dir;
    const std::string program = ReadFile("/proc/self/exe");
    WriteFile("whole", program);
    EXPECT_FALSE(IsTruncatedElf("whole"));
    for (const size_t size : {size_t{4}, size_t{15}, size_t{16}, size_t{63}, size_t{64},
                              size_t{500}, program.size() / 2, program.size() - 1}) {
        WriteFile("cut", program.substr(0, size));
        EXPECT_TRUE(IsTruncatedElf("cut")) << size << " of " << program.size();
    }

    WriteFile("script", "#!/bin/sh\n");
    WriteFile("empty", "");
    WriteFile("start", program.substr(0, 3));
    for (const char* other : {"script", "empty", "start", "missing", "."}) {
        EXPECT_FALSE(IsTruncatedElf(other)) << other;
    }
}

TEST(ElfCheck, IsNotMisledByNumbersThatWrap) {
    const ScratchDir dir;
    const std::string program = ReadFile("/proc/self/exe");
    // The offsets of the segment and the section table in the header.
    for (const size_t field : {size_t{0x20}, size_t{0x28}}) {
        std::string damaged = program;
        damaged.replace(field, 8, 8, '\xFF');
        WriteFile("damaged", damaged);
        EXPECT_TRUE(IsTruncatedElf("damaged")) << field;
    }
}

TEST(Home, ComesFromTheEnvironmentElseFromTheAccount) {
    const std::string before = getenv("HOME") ? getenv("HOME") : "";
    const std::string longHome = "/" + std::string(100000, 'h');
    setenv("HOME", longHome.c_str(), 1);
    EXPECT_EQ(GameHome(), longHome + "/.halcyrix");
    EXPECT_EQ(ManualAddress(), "file:" + longHome + "/.halcyrix/manual.html");
    unsetenv("HOME");
    const passwd* account = getpwuid(getuid());  // a user of a container may have none
    EXPECT_EQ(UserHome(), account != nullptr ? account->pw_dir : "");
    setenv("HOME", before.c_str(), 1);
}

}  // namespace
