// The real program as a player meets it: what a start becomes, what the windows say and what keys
// do.

#include "net/event_loop.h"
#include "tests/support/game.h"
#include "tests/support/relay.h"
#include "tests/support/screen.h"
#include "update/messages.h"

namespace fs = std::filesystem;

namespace {

// Writes to $HOME/told how it was started: arguments, library path, blocked and ignored signals,
// and the number of open sockets.
constexpr char kScript[] =
    "#!/bin/sh\n"
    "{ echo \"$# $* $LD_LIBRARY_PATH\"\n"
    "while read -r name value; do case $name in\n"
    "SigBlk:) echo $value;; SigIgn:) echo $((0x$value & 0x1001000));; esac\n"  // PIPE and XFSZ
    "done </proc/$$/status\n"
    "readlink /proc/$$/fd/* | grep -c socket; } >$HOME/told\n"
    "exit 7\n";

const std::string kUpdater = ReadFile(LOOPBACK_UPDATER), kEnd(1, '\0');
// Answers that make a session fail.
const std::map<std::string, std::vector<std::string>> kLies = {
    {"MOTD", {kEnd}}, {"GETV", {"1", Encode(FileListEntry{"../x", 0, 0})}}};

// The player's home is beside the test's, which it links to as the game's home.
class ProgramTest : public GameTest {
protected:
    ProgramTest() {
        if (screen == nullptr) screen = new TestScreen;
        fs::create_directory(Player());
        fs::create_symlink(Home(), Player() / ".halcyrix");
        fs::create_symlink(LOOPBACK_UPDATER, Player() / "update.rlb");
    }

    fs::path Player() const { return Home().parent_path() / "player"; }
    // The program under a name that does not hand off.
    std::string Copy() const { return Player() / "update.rlb"; }

    std::function<void()> AsPlayer(std::function<void()> more = {}) const {
        return [this, more] {
            setenv("HOME", Player().c_str(), 1);
            setenv("G_DEBUG", "fatal-warnings", 1);
            unsetenv("LD_LIBRARY_PATH");
            sigset_t some;
            sigfillset(&some);
            sigprocmask(SIG_BLOCK, &some, nullptr);
            if (more) more();
        };
    }

    Window AwaitMain(const Program& updater) {
        return screen->AwaitWindow(updater.Pid(), "Halcyrix Update Utility");
    }

    // Waits until the console says it. Leaves all of its text selected.
    void AwaitConsole(const Program& updater, const std::string& words) {
        const uint64_t end = EventLoop::Now() + 10000;
        for (std::string said; said.find(words) == std::string::npos;) {
            ASSERT_LT(EventLoop::Now(), end) << "without \"" << words << "\": " << said;
            said.clear();
            screen->Press(AwaitMain(updater), "ctrl+a");
            RunProgram({"timeout", "1", "xclip", "-o"}, &said);
        }
    }

    // The arguments and library path of the script, which must have found the rest in order.
    std::string Told() const {
        const std::string told = ReadFile(Player() / "told");
        fs::remove(Player() / "told");
        if (told == "(missing)") return "";
        EXPECT_TRUE(told.ends_with("\n0000000000000000\n0\n0\n")) << told;
        return told.substr(0, told.find('\n'));
    }

    // Presses the first button that can be pressed, and waits for the status that comes of it.
    void CancelOrPlay(Program& updater, int status) {
        screen->Press(AwaitMain(updater), "Tab space");
        EXPECT_EQ(updater.Wait(), status);
    }

    void Close(Program& updater) {
        screen->Close(AwaitMain(updater));
        EXPECT_EQ(updater.Wait(), 0);
    }

    // Waits until no updater has locked the game's home. Play can be pressed then.
    void AwaitRest() { EXPECT_EQ(RunProgram({"flock", Home(), "true"}), 0); }

    static inline TestScreen* screen = nullptr;  // ends with the process
};

TEST_F(ProgramTest, UpdatesItselfAndTheGameAndShowsTheManualAndPlays) {
    Publish("1.0", {{"linux64upd/update.rlb", kUpdater + "newer"},
                    {"linux64/halcyrix", kScript},
                    {"common/manual.html", "The manual."}});
    Install("", {{"linux64upd/update.rlb", kUpdater + "old"}});
    ServingProgram server(StorePath(), "127.0.0.1");
    Program updater({"strace", "-Dyqqq", "-ocalls", "-etrace=execve,fsync", UPDATER, "-phase2"},
                    AsPlayer([] {
                        fs::current_path("..");
                        setenv("HOME", "player", 1);
                        setenv("BROWSER", "echo '%s' >$HOME/seen; exit 99", 1);
                    }));
    server.AwaitWords("linux64upd");
    server.AwaitWords("linux64+common");
    AwaitRest();
    EXPECT_TRUE(ReadFile("update.rlb") == kUpdater + "newer") << "replaced while it ran";
    EXPECT_FALSE(fs::exists("update.starts"));
    const std::string home = Home();
    EXPECT_THAT(ReadFile("../calls"),
                testing::AllOf(testing::HasSubstr(home + "/update.rlb>) = 0\nfsync"),
                               testing::HasSubstr(home + ">) = 0\nexecve(\"./update.rlb\"")));
    const Window window = AwaitMain(updater);
    screen->Press(window, "Tab Tab space");
    const Window notice = screen->AwaitWindow(updater.Pid(), "Error opening URL");
    const std::string manual = "file:" + Player().string() + "/.halcyrix/manual.html\n";
    EXPECT_EQ(ReadFile(Player() / "seen"), manual);
    screen->Close(notice);
    screen->Press(window, "shift+Tab space");
    EXPECT_EQ(updater.Wait(), 7);
    EXPECT_EQ(Told(), "0  ./drivers:.");
}

TEST_F(ProgramTest, StartsAsWhatItsNameAndArgumentsSay) {
    const std::string noCopy, cutOff = kUpdater.substr(0, 10000);
    // The component is asked for first; the copy tells the last.
    const struct {
        std::string name, argument, copy, component, told;
    } cases[] = {
        {UPDATER, "-phase2", kScript, "", "0  "},
        {UPDATER, "-Bugreport", kScript, "", "0  "},
        {LOOPBACK_UPDATER, "-phase2", cutOff, "ARCHlinux64", ""},
        {LOOPBACK_UPDATER, "x", noCopy, "ARCHlinux64upd", ""},
        {Copy(), "-phase2x", kScript, "ARCHlinux64upd", "1 -phase2 "},  // the session fails
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name + " " + c.argument);
        Install("", {});
        if (c.copy != noCopy) WriteFile("update.rlb", c.copy);
        // The server hangs up at the version request, or lies about a name.
        Relay relay(c.told.empty() ? Answer({{"MOTD", {kEnd}}, {"GETV", {}}}, Instead::kHangUp)
                                   : Answer(kLies));
        Program updater({c.name, c.argument}, AsPlayer());
        if (c.told.empty()) {
            AwaitConsole(updater, "Can't reach any");
            AwaitRest();
            Close(updater);
        } else {
            EXPECT_EQ(updater.Wait(), 7);
        }
        EXPECT_EQ(Told(), c.told);
        const std::vector<std::string> requests = relay.Requests();
        EXPECT_EQ(requests.empty() ? "" : requests.at(1).c_str(), c.component);
    }
}

TEST_F(ProgramTest, MakesItsHomeOrSaysWhyItCannot) {
    umask(0);
    fs::remove(Player() / ".halcyrix");
    const std::pair<void (*)(), std::string> cases[] = {
        {[] {}, ""},  // the directory is made
        {[] { fs::create_symlink("/nowhere", ".halcyrix"); }, "No such file or directory"},
        {[] { WriteFile(".halcyrix", "a file"); }, "Not a directory"},
        {[] { chmod(".", 0500); }, "Permission denied"},
        {[] { mkdir(".halcyrix", 0); }, "Permission denied"},
    };
    for (const auto& [prepare, error] : cases) {
        SCOPED_TRACE(error);
        const ScratchDir home;
        Relay relay;
        prepare();
        Program updater({Copy()}, AsPlayer([&] {
                            setenv("HOME", home.Path().c_str(), 1);
                            close_range(0, 2, 0);
                        }));
        if (error.empty()) {
            screen->Close(screen->AwaitWindow(updater.Pid(), "Halcyrix Home Directory"));
            EXPECT_EQ(fs::status(".halcyrix").permissions(), fs::perms(0755));
            const std::string process = "/proc/" + std::to_string(updater.Pid());
            EXPECT_EQ(fs::read_symlink(process + "/fd/2"), "/dev/null") << "not the display";
        } else {
            AwaitConsole(updater, (home.Path() / ".halcyrix: ").string() + error);
            EXPECT_TRUE(relay.Requests().empty());
        }
        Close(updater);
        chmod(".", 0700);
    }
}

TEST_F(ProgramTest, AnswersAndEndsInALongCheckWhileOthersWait) {
    WriteFile("big", "");
    fs::resize_file("big", 4000000000);
    const std::string listed = Encode(FileListEntry{"linux64/big", 0, 4000000000});
    Relay relay(Answer({{"MOTD", {kEnd}}, {"GETV", {"1", listed, kEnd}}}));
    Program first({Copy(), "-phase2"}, AsPlayer());
    AwaitConsole(first, "Latest version");
    Program second({Copy(), "-phase2"}, AsPlayer());
    AwaitConsole(second, "Another updater is at work");
    WriteFile("manual.html", "");
    Program third({Copy(), "-phase2"}, AsPlayer([] { setenv("BROWSER", "touch helped", 1); }));
    AwaitConsole(third, "Another updater is at work");
    kill(second.Pid(), SIGSTOP);
    screen->Press(AwaitMain(third), "Tab space shift+Tab");  // Help
    RunProgram({"sh", "-c", "until [ -e helped ]; do sleep 0.02; done"});
    screen->Close(AwaitMain(second));
    CancelOrPlay(first, 0);
    AwaitConsole(third, "Latest version");
    Close(third);
    kill(second.Pid(), SIGCONT);
    EXPECT_EQ(second.Wait(), 0) << "begins no session in a window that is gone";
    // A lock that outlives its process is never an updater's.
    Program stranger({"sh", "-c", "exec 9<.; flock -n 9; echo locked; exec sleep 100"});
    stranger.AwaitWords("locked");
    Program fourth({Copy(), "-phase2"}, AsPlayer());
    AwaitConsole(fourth, "Latest version");
    // No check has come to its end.
    EXPECT_THAT(relay.Requests(), testing::Each(testing::Not(testing::StartsWith("FULL"))));
}

TEST_F(ProgramTest, StaysWhenTheNewCopyIsCutOffAndLetsThePlayerPlay) {
    Publish("1.0", {{"linux64upd/update.rlb", kUpdater}});
    WriteFile("halcyrix", kScript);
    ServingProgram server(StorePath(), "127.0.0.1");
    Program updater({Copy()}, AsPlayer([] {
                        new FileSizeLimit(100000);
                        setenv("LD_LIBRARY_PATH", "/usr/lib", 1);
                    }));
    AwaitConsole(updater,
                 "harddrive)\nThe new updater is incomplete and cannot be started.  Is the ");
    fs::rename("halcyrix", "gone");
    screen->Press(AwaitMain(updater), "Tab space");
    screen->Close(screen->AwaitWindow(updater.Pid(), "Fatal error"));
    fs::rename("gone", "halcyrix");
    screen->Press(AwaitMain(updater), "space");
    EXPECT_EQ(updater.Wait(), 7);
    EXPECT_EQ(Told(), "0  ./drivers:.:./drivers:.:/usr/lib");
}

TEST_F(ProgramTest, GoesOnWithoutACopyThatNeverShowsItsWindow) {
    std::string noLibrary = kUpdater, otherMachine = kUpdater;
    noLibrary.replace(noLibrary.find("libgtk-x11"), 6, "nogtk!");
    otherMachine[18] = 40;
    // With the status of each start: 1 without a display, -1 for what cannot be executed at all.
    const std::pair<std::string, int> copies[] = {{ReadFile("/bin/true"), 0},
                                                  {"#!/bin/sh\nkill -SEGV $$\n", 128 + SIGSEGV},
                                                  {noLibrary, 127},
                                                  {kUpdater + "older", 1},
                                                  {otherMachine, -1}};
    Publish("1.0", {{"linux64upd/update.rlb", kUpdater}});
    for (const auto& [copy, status] : copies) {
        SCOPED_TRACE(status);
        Install("", {{"linux64upd/update.rlb", copy}});
        for (int starts = 0; starts < 3 && status != -1; ++starts) {
            const auto hide = [display = status != 1] {
                if (!display) unsetenv("DISPLAY");
                unsetenv("G_DEBUG");
            };
            EXPECT_EQ(Program({LOOPBACK_UPDATER}, AsPlayer(hide)).Wait(), status);
        }
        EXPECT_EQ(fs::exists("update.starts"), std::abs(status) != 1);
        ServingProgram server(StorePath(), "127.0.0.1");
        Program updater({LOOPBACK_UPDATER}, AsPlayer());
        server.AwaitWords("linux64+common");
        AwaitRest();
        EXPECT_TRUE(ReadFile("update.rlb") == kUpdater);
        EXPECT_FALSE(fs::exists("update.starts"));
        Close(updater);
    }
}

TEST_F(ProgramTest, SendsTheCrashReportThatWasTypedAndNoOther) {
    WriteFile("update.rlb", kScript);  // handed off to in the other modes
    const std::string command[] = {LOOPBACK_UPDATER, "-bugreport", "0x1234"};
    for (const size_t words : {2, 3}) {
        Program receiver({SOURCE_DIR "/scripts/receive-report"});
        receiver.AwaitWords("Waiting");
        for (const char* keys : {"Tab Tab Tab space", "a Tab b Return Tab space"}) {
            Program reporter({command, command + words}, AsPlayer());
            screen->Press(screen->AwaitWindow(reporter.Pid(), "Halcyrix Bug Report"), keys);
            EXPECT_EQ(reporter.Wait(), 0);
        }
        receiver.AwaitWords(std::string("=a&platform=Linux&IP=") + (words > 2 ? "0x1234" : "none") +
                            " HTTP");
        receiver.AwaitWords("\n\nb\n\n*****");
    }
}

}  // namespace
