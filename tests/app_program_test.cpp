// The program as the player starts it: its modes, the hand-off, and the two phases.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>

#include "app/actions.h"
#include "app/bugreport_main.h"
#include "app/quit.h"
#include "app/support.h"
#include "app/updater.h"
#include "app/updater_main.h"
#include "tests/support/gtk_windows.h"
#include "tests/support/private_network.h"
#include "tests/support/recorders.h"
#include "tests/support/report_receiver.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/scripted_server.h"
#include "tests/support/start_script.h"
#include "tests/support/x_server.h"

namespace {

using Arguments = std::vector<std::string>;

constexpr char kMainTitle[] = "Halcyrix Update Utility";
constexpr char kCopy[] = ".halcyrix/update.rlb";
// The program, started in a home directory of its own.
class Program {
public:
    Program(const char* path, Arguments arguments) : m_pid(fork()) {
        if (m_pid != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        setenv("HOME", get_current_dir_name(), 1);
        unsetenv("LD_LIBRARY_PATH");
        setenv("G_DEBUG", "fatal-criticals", 1);
        dup2(open("/dev/null", O_RDWR), STDIN_FILENO);
        dup2(STDIN_FILENO, STDOUT_FILENO);
        std::vector<char*> pointers;
        for (std::string& argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        execv(path, pointers.data());
        _exit(127);
    }
    ~Program() {
        if (m_pid != 0) kill(m_pid, SIGKILL);
        if (m_pid != 0) waitpid(m_pid, nullptr, 0);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    // The exit status, -1 for an end by a signal.
    int Wait() {
        int status = 0;
        waitpid(std::exchange(m_pid, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    bool Shows(const char* title) { return m_watch.WaitFor(m_pid, title) != 0; }
    void Close(const char* title) { m_watch.Close(m_watch.WaitFor(m_pid, title)); }

private:
    WindowWatch m_watch;
    pid_t m_pid;
};

TEST(HandOff, GoesToTheCopyUnlessThatCannotRun) {
    const std::string program = ReadFile(UPDATER);
    const struct {
        const char* claim;
        Arguments arguments;
        std::optional<std::string> copy;
        bool handsOff;
    } cases[] = {
        {"another name", {"halcyrix-updater"}, kStartScript, true},
        {"arguments are dropped", {"/usr/games/halcyrix", "-phase2"}, kStartScript, true},
        {"the word must be the first argument", {"x", "--", "-bugreport"}, kStartScript, true},
        {"the word must be exact", {"x", "-Bugreport"}, kStartScript, true},
        {"the copy's own name", {"/elsewhere/update.rlb"}, kStartScript, false},
        {"no copy", {"halcyrix-updater"}, std::nullopt, false},
        {"a copy that is no program", {"halcyrix-updater"}, "text", false},
        {"an empty copy", {"halcyrix-updater"}, "", false},
        {"a cut-off copy", {"halcyrix-updater"}, program.substr(0, program.size() / 2), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.claim);
        const ScratchDir home;
        if (c.copy) WriteFile(kCopy, *c.copy);
        Program updater(UPDATER, c.arguments);
        if (!c.handsOff) {
            EXPECT_TRUE(updater.Shows(kMainTitle));
            updater.Close(kMainTitle);
        }
        EXPECT_EQ(updater.Wait(), c.handsOff ? kScriptRan : 0);
        EXPECT_EQ(ReadFile("told"), c.handsOff ? ScriptTells("0  ") : "(missing)");
    }
}

// An honest server, run until it has answered a request for the given number of times.
class UpdateServer : public HonestScript {
public:
    // All requests so far, without their NULs.
    std::string AnswerUntil(std::string_view last, int times) {
        std::string requests;
        m_server.script = [&](ScriptedPeer& peer, const std::string& request) {
            (*this)(peer, request);
            requests += request.c_str() + std::string(" ");
            if (request == last && --times == 0) m_loop.Stop(0);
        };
        m_loop.Run();
        return requests;
    }

private:
    RecordingLog m_log;
    EventLoop m_loop;
    ScriptedServer m_server{&m_loop, "127.0.0.1", nullptr};
};

TEST(BugReport, IsAllThatItsModeDoes) {
    const ScratchDir home;
    WriteFile(kCopy, kStartScript);
    ReportReceiver receiver;
    if (!receiver.Listens()) GTEST_SKIP() << "port 80 is not to be had";
    Program reporter(LOCAL_UPDATER, {"halcyrix-updater", "-bugreport", "0x1234"});
    EXPECT_TRUE(reporter.Shows("Halcyrix Bug Report"));
    reporter.Close("Halcyrix Bug Report");
    EXPECT_EQ(reporter.Wait(), 0);
    EXPECT_EQ(ReadFile("told"), "(missing)");
    EXPECT_FALSE(receiver.IsWanted());
}

gboolean FillIn(gpointer button) {
    gtk_entry_set_text(GTK_ENTRY(lookup_widget(bugwindow, "username_entry")), "A b");
    GtkWidget* view = lookup_widget(bugwindow, "bug_entry");
    gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(view)), "It\ncrashed", -1);
    const char* name = static_cast<const char*>(button);
    gtk_button_clicked(GTK_BUTTON(lookup_widget(bugwindow, name)));
    return FALSE;
}

TEST(BugReport, IsSentOnSubmitAndNotOnCancel) {
    const struct {
        Arguments arguments;
        const char* button;
        std::string address;  // empty when nothing is sent
    } cases[] = {
        {{"x", "-bugreport", "0x1234", "more"}, "bug_submit", "0x1234"},
        {{"x", "-bugreport"}, "bug_submit", "none"},
        {{"x", "-bugreport", "0x1234"}, "bug_cancel", ""},
    };
    const ScratchDir game;
    ReportReceiver receiver;
    if (!receiver.Listens()) GTEST_SKIP() << "port 80 is not to be had";
    for (const auto& c : cases) {
        const pid_t child = fork();
        if (child == 0) {
            g_idle_add(FillIn, const_cast<char*>(c.button));
            std::vector<char*> pointers;
            for (const std::string& a : c.arguments) pointers.push_back(strdup(a.c_str()));
            _exit(bugreport_main(static_cast<int>(pointers.size()), pointers.data()));
        }
        if (!c.address.empty()) {
            const std::string request = receiver.Receive("HTTP/1.1 500 No\n\n");
            EXPECT_TRUE(request.starts_with(
                "POST /x/postbug?username=A%20b&platform=Linux&IP=" + c.address + " HTTP/1.1\n"));
            EXPECT_NE(request.find("\n\nIt\ncrashed\n*****"), std::string::npos);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_FALSE(receiver.IsWanted());
    }
}

TEST(Phases, AskForTheUpdaterFirstAndThenForTheGame) {
    const std::string own = "PVERA ARCHlinux64upd GETV ";
    const std::string game = "PVERA ARCHlinux64 ARCHcommon MOTD GETV ";
    const struct {
        const char* claim;
        Arguments arguments;
        bool hasCopy;
        std::string requests;
    } cases[] = {
        {"phase 1", {"update.rlb"}, false, own + game},
        {"phase 2", {"update.rlb", "-phase2"}, false, game},
        {"another name", {"halcyrix-updater"}, false, own + game},
        {"a hand-off drops the phase", {"halcyrix-updater", "-phase2"}, true, own + game},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.claim);
        const ScratchDir home;
        if (c.hasCopy) WriteFile(kCopy, ReadFile(LOCAL_UPDATER));
        UpdateServer server;
        Program updater(LOCAL_UPDATER, c.arguments);
        EXPECT_EQ(server.AnswerUntil("GETV", c.requests == game ? 1 : 2), c.requests);
        updater.Close(kMainTitle);
        EXPECT_EQ(updater.Wait(), 0);
    }
}

TEST(Phases, MakeTheHomeDirectoryAndSaySo) {
    const ScratchDir home;
    umask(022);
    Program updater(LOCAL_UPDATER, {"update.rlb"});
    EXPECT_TRUE(updater.Shows("Halcyrix Home Directory"));
    struct stat directory;
    ASSERT_EQ(stat(".halcyrix", &directory), 0);
    EXPECT_EQ(directory.st_mode & 07777, 0755U);
    updater.Close("Halcyrix Home Directory");
    updater.Close(kMainTitle);
    EXPECT_EQ(updater.Wait(), 0);
}

TEST(Phases, RestartAsTheCopyAfterAnOwnSessionThatChangedAnything) {
    const std::string program = ReadFile(UPDATER);
    const std::string cutOff = program.substr(0, program.size() - 1);
    const struct {
        const char* claim;
        std::string file, contents, copy, last;
        int status;
    } cases[] = {
        {"a new copy", "linux64upd/update.rlb", kStartScript, "old", "DOWN", kScriptRan},
        {"a failure", "linux64upd/../x", "", kStartScript, "GETV", kScriptRan},
        {"a copy that does not run", "linux64upd/../x", "", "text", "GETV", 0},
        {"a cut-off copy", "linux64upd/../x", "", cutOff, "GETV", 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.claim);
        const ScratchDir home;
        WriteFile(kCopy, c.copy);
        UpdateServer server;
        server.files[c.file] = c.contents;
        Program updater(LOCAL_UPDATER, {"update.rlb"});
        server.AnswerUntil(c.last, 1);
        EXPECT_EQ(updater.Wait(), c.status);
        EXPECT_EQ(ReadFile("told"), c.status == 0 ? "(missing)" : ScriptTells("1 -phase2 "));
    }
}

// What the player does, and in which of the iterations that come before the main loop.
struct EarlyEnd {
    const char* claim;
    int iteration;
    bool closes;
};

gboolean EndEarly(gpointer data) {
    auto* end = static_cast<EarlyEnd*>(data);
    if (--end->iteration > 0) return TRUE;
    if (end->closes) {
        CloseWindow(FindWindow(kMainTitle));
    } else {
        on_cancel_clicked(nullptr, nullptr);
    }
    return FALSE;
}

TEST(Cancel, EndsTheProgramAlsoBeforeTheMainLoop) {
    const EarlyEnd cases[] = {{"Cancel before the session", 1, false},
                              {"closed before the session", 1, true},
                              {"Cancel while it is started", 2, false},
                              {"closed while it is started", 2, true}};
    for (EarlyEnd end : cases) {
        SCOPED_TRACE(end.claim);
        const ScratchDir home;
        WriteFile(kCopy, kStartScript);
        const pid_t child = fork();
        if (child == 0) {
            setenv("HOME", home.Path().c_str(), 1);
            setenv("G_DEBUG", "fatal-criticals", 1);
            char name[] = "update.rlb";
            char* arguments[] = {name, nullptr};
            g_idle_add_full(G_PRIORITY_HIGH, EndEarly, &end, nullptr);
            const int status = updater_main(1, arguments, 1);
            // Neither a restart nor another session may come of what still ends.
            gui_log->Finished(1);
            self_update_pending = true;
            gui_log->Finished(0);
            gtktimerhandler(nullptr);
            _exit(quit_requested() && gtk_main_level() == 0 ? status : 1);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        EXPECT_EQ(ReadFile("told"), "(missing)");
    }
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    signal(SIGPIPE, SIG_IGN);
    const XServer display;
    if (!display.Running()) return kSkipped;
    EnterPrivateNetwork();
    return RUN_ALL_TESTS();
}
