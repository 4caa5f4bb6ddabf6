// The main window and all that works on it, in a real display.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "app/actions.h"
#include "app/browser.h"
#include "app/bugwindow.h"
#include "app/console.h"
#include "app/mainwindow.h"
#include "app/support.h"
#include "app/updater.h"
#include "app/widgets.h"
#include "halcyrix_config.h"
#include "tests/support/gtk_windows.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/start_script.h"
#include "tests/support/x_server.h"

namespace {

constexpr char kUnfinished[] = "\xE2\x82";

class MainWindow : public testing::Test {
protected:
    MainWindow() : m_window(create_mainwindow()) {
        gtk_widget_show(m_window);
        keep_mainwindow_widgets(m_window);
        input_pending = false;
    }
    ~MainWindow() override {
        if (console != nullptr) gtk_widget_destroy(m_window);
        ProcessEvents();
    }

    GtkWidget* Named(const char* name) { return lookup_widget(m_window, name); }
    std::string ProgressText() const {
        return gtk_progress_bar_get_text(GTK_PROGRESS_BAR(progress1));
    }

    GtkWidget* m_window;
    _Log m_log;
};

TEST_F(MainWindow, OffersOnlyCancelAtFirst) {
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(m_window)), "Halcyrix Update Utility");
    EXPECT_FALSE(gtk_widget_get_sensitive(start_button));
    EXPECT_FALSE(gtk_widget_get_sensitive(help_button));
    EXPECT_TRUE(gtk_widget_get_sensitive(Named("cancel_button")));
    EXPECT_FALSE(gtk_text_view_get_editable(GTK_TEXT_VIEW(console)));
    EXPECT_EQ(ProgressText(), "Loading...");
}

TEST_F(MainWindow, FindsWidgetsFromAnywhereInside) {
    EXPECT_EQ(lookup_widget(console, "cancel_button"), Named("cancel_button"));
    GtkWidget* menu = gtk_menu_new();
    gtk_menu_attach_to_widget(GTK_MENU(menu), console, nullptr);
    EXPECT_EQ(lookup_widget(menu, "statusbar1"), progress2);
    GtkWidget* apart = gtk_label_new("");
    g_object_ref_sink(apart);
    g_object_set_data(G_OBJECT(apart), "GladeParentKey", console);
    EXPECT_EQ(lookup_widget(apart, "mainwindow"), m_window);
    g_object_unref(apart);

    std::string warning;
    g_log_set_default_handler([](const gchar*, GLogLevelFlags, const gchar* text,
                                 gpointer kept) { *static_cast<std::string*>(kept) = text; },
                              &warning);
    EXPECT_EQ(Named("no such"), nullptr);
    EXPECT_EQ(warning, "Widget not found: no such");
    FailOnWarnings();
}

TEST_F(MainWindow, ShowsMessagesThatNothingWaitsFor) {
    message_box("first", "One");
    message_box("not \xFF text", "Two");
    GtkWidget* one = FindWindow("One");
    GtkWidget* two = FindWindow("Two");
    ASSERT_TRUE(one != nullptr && two != nullptr);
    EXPECT_EQ(LabelText(one), "first");
    EXPECT_EQ(LabelText(two), "not \uFFFD text");
    EXPECT_FALSE(gtk_window_get_modal(GTK_WINDOW(one)));
    EXPECT_STREQ(gtk_button_get_label(FindButton(one)), " Close ");
    gtk_button_clicked(FindButton(one));
    EXPECT_EQ(FindWindow("One"), nullptr);
    EXPECT_EQ(FindWindow("Two"), two);
    CloseWindow(two);
    EXPECT_EQ(FindWindow("Two"), nullptr);
}

TEST_F(MainWindow, ConsoleTakesAnyBytesAndScrolls) {
    for (const char* text : {"half ", kUnfinished, "\xAC whole\n", "\xFF\n", kUnfinished}) {
        m_log.Print(text);
    }
    EXPECT_EQ(TextOf(console), "half \u20AC whole\n\uFFFD\n");
    for (int i = 0; i < 300; ++i) m_log.Printf("line %d\n", i);
    EXPECT_EQ(TextOf(console).substr(0, 28), "half \u20AC whole\n\uFFFD\n\uFFFDline 0");

    ProcessEvents();
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(console));
    GtkTextIter end;
    gtk_text_buffer_get_end_iter(buffer, &end);
    GdkRectangle view, cursor;
    gtk_text_view_get_visible_rect(GTK_TEXT_VIEW(console), &view);
    gtk_text_view_get_iter_location(GTK_TEXT_VIEW(console), &end, &cursor);
    EXPECT_GE(cursor.y, view.y);
    EXPECT_LE(cursor.y + cursor.height, view.y + view.height);
}

TEST_F(MainWindow, ProgressTellsKilobytesAndPercent) {
    constexpr int32_t kMin = INT32_MIN;
    const struct {
        int32_t done, total;
        const char* text;
        double fraction;
    } cases[] = {
        {1536000, 3072000, "1500/3000k [50%]", 0.5},
        {1023, 1048576, "0/1024k [0%]", 1023.0 / 1048576},
        {2097152, 2097152, "2048/2048k [100%]", 1.0},
        {4096, 2048, "4/2k [200%]", 1.0},  // beyond the total the bar stays
        {500, 1000, "0/0k [50%]", 0.5},    // below a kilobyte the bytes count
        {1000, 1000, "0/0k [100%]", 1.0},
        {5, 0, "0/0k [100%]", 1.0},  // no total: nothing changes
        {500, -1000, "0/0k [4294967246%]", 1.0},
        {kMin, -1, "4292870144/0k [0%]", 1.0},
        {0, kMin, "0/4292870144k [0%]", 1.0},
        {-1024, 1024, "4294967295/1k [4294967196%]", 1.0},
    };
    for (const auto& c : cases) {
        _Log().SetProgress(c.done, c.total);
        EXPECT_EQ(ProgressText(), c.text) << c.done << " of " << c.total;
        EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(progress1)), c.fraction);
    }
}

TEST_F(MainWindow, ProgressIsShownOnceInFiftyMilliseconds) {
    uint64_t start;
    do {  // until the machine was quick enough for both calls
        _Log log;
        start = EventLoop::Now();
        log.SetProgress(1024, 4096);
        log.SetProgress(2048, 4096);
        m_log = log;
    } while (EventLoop::Now() - start > 50);
    EXPECT_EQ(ProgressText(), "1/4k [25%]");
    m_log.SetProgress(4096, 4096);
    EXPECT_EQ(ProgressText(), "4/4k [100%]");
    for (start = EventLoop::Now(); EventLoop::Now() - start <= 51;) {
    }
    m_log.SetProgress(3072, 4096);
    EXPECT_EQ(ProgressText(), "3/4k [75%]");
}

TEST_F(MainWindow, LetsEventsInUnlessInputWaits) {
    bool seen;
    const auto report = [&](bool status) {
        seen = false;
        const guint source = g_idle_add(
            [](gpointer flag) -> gboolean { return !(*static_cast<bool*>(flag) = true); }, &seen);
        if (status) {
            m_log.SetStatus("busy");
        } else {
            m_log.SetProgress(1, 1);
        }
        if (!seen) g_source_remove(source);
        return seen;
    };
    EXPECT_TRUE(report(false));
    EXPECT_TRUE(report(true));
    input_pending = true;
    EXPECT_FALSE(report(false));
    EXPECT_FALSE(report(true));
}

TEST_F(MainWindow, StatusReplacesTheLastOne) {
    gtk_statusbar_push(GTK_STATUSBAR(progress2), kStatusContext, "Initializing...");
    m_log.SetStatus("one");
    m_log.SetStatus("version \xFF");
    EXPECT_EQ(LabelText(progress2), "version \uFFFD");
    gtk_statusbar_pop(GTK_STATUSBAR(progress2), kStatusContext);
    EXPECT_EQ(LabelText(progress2), "");
}

TEST_F(MainWindow, TheGameCanBePlayedAfterItsSessionHoweverThatEnded) {
    for (const int result : {0, 3, -1}) {
        gtk_widget_set_sensitive(start_button, FALSE);
        gtk_widget_set_sensitive(help_button, FALSE);
        self_update_pending = false;
        m_log.Finished(result);
        EXPECT_TRUE(gtk_widget_get_sensitive(start_button)) << result;
        EXPECT_TRUE(gtk_widget_get_sensitive(help_button)) << result;
    }
}

TEST_F(MainWindow, MayBeClosedWhileWorkGoesOn) {
    g_idle_add(
        [](gpointer window) -> gboolean {
            gtk_widget_destroy(static_cast<GtkWidget*>(window));
            return FALSE;
        },
        m_window);
    m_log.SetProgress(1024, 4096);
    for (const GtkWidget* widget : {console, progress1, progress2, start_button, help_button}) {
        EXPECT_EQ(widget, nullptr);
    }
    m_log.SetProgress(4096, 4096);
    m_log.SetStatus("gone");
    m_log.Printf("gone\n");
    m_log.Finished(0);
}

TEST(BugWindow, HidesTheHelpThatIsNotWritten) {
    GtkWidget* window = create_bugwindow();
    EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(window)), "Halcyrix Bug Report");
    EXPECT_FALSE(gtk_widget_get_visible(lookup_widget(window, "bug_help")));
    EXPECT_TRUE(gtk_text_view_get_editable(GTK_TEXT_VIEW(lookup_widget(window, "bug_entry"))));
    gtk_widget_destroy(window);
    window = create_bughelp();
    EXPECT_FALSE(gtk_text_view_get_editable(GTK_TEXT_VIEW(lookup_widget(window, "text2"))));
    gtk_widget_destroy(window);
}

// Counts dispatch passes, and signals input from inside of one.
class Passes : public Poll_Event {
public:
    Passes() : Poll_Event(&event_loop) { Register(); }
    ~Passes() override { Unregister(); }
    void OnPoll() override {
        EXPECT_FALSE(m_running);
        m_running = true;
        ++count;
        if (std::exchange(signalInput, false)) {
            gtkinputhandler(nullptr, 0, GDK_INPUT_READ);
            gtktimerhandler(nullptr);
        }
        m_running = false;
    }

    int count = 0;
    bool signalInput = false;

private:
    bool m_running = false;
};

TEST_F(MainWindow, DispatchIsNeverEnteredTwiceAndInputMakesAnotherPass) {
    UpdateClient client(&event_loop, &m_log);
    update_client = &client;
    Passes passes;
    passes.signalInput = true;
    gtkinputhandler(nullptr, 0, GDK_INPUT_READ);
    EXPECT_EQ(passes.count, 2);
    EXPECT_FALSE(input_pending);
    passes.signalInput = true;
    EXPECT_TRUE(gtktimerhandler(nullptr));
    EXPECT_EQ(passes.count, 3);
    EXPECT_TRUE(input_pending);
}

TEST_F(MainWindow, WatchesTheSocketWhileTheClientWantsToRead) {
    UpdateClient client(&event_loop, &m_log);
    update_client = &client;
    Passes passes;
    int first[2], second[2];
    ASSERT_TRUE(pipe(first) == 0 && pipe(second) == 0);
    for (const int fd : {first[1], second[1]}) ASSERT_EQ(write(fd, "x", 1), 1);
    const struct {
        int fd;
        uint32_t flags;
        bool watched;
    } cases[] = {
        {first[0], IO_WRITE, false},
        {first[0], IO_READ, true},
        {second[0], IO_READ, true},
        {second[0], IO_WRITE, false},
        {-1, 0, false},
        {first[0], IO_READ | IO_WRITE, true},
        {-1, 0, false},
    };
    for (const auto& c : cases) {
        client.m_fd = c.fd;
        client.m_flags = c.flags;
        sync_input_watch();
        passes.count = 0;
        for (int i = 0; i < 20 && gtk_events_pending(); ++i) gtk_main_iteration();
        EXPECT_EQ(passes.count > 0, c.watched) << c.fd << " with " << c.flags;
    }
    for (const int fd : {first[0], first[1], second[0], second[1]}) close(fd);
}

TEST_F(MainWindow, PlayPutsTheGamesLibrariesFirstAndTellsOfFailure) {
    const ScratchDir dir;
    const struct {
        const char *before, *after;
    } cases[] = {
        {nullptr, "./drivers:."},
        {"", "./drivers:.:"},
        {"/usr/lib", "./drivers:.:/usr/lib"},
        {"./drivers:.", "./drivers:.:./drivers:."},
    };
    for (const auto& c : cases) {
        unsetenv("LD_LIBRARY_PATH");
        if (c.before != nullptr) setenv("LD_LIBRARY_PATH", c.before, 1);
        on_start_clicked(nullptr, nullptr);
        EXPECT_STREQ(getenv("LD_LIBRARY_PATH"), c.after);
        GtkWidget* box = FindWindow("Fatal error");
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(LabelText(box), "Failed to start halcyrix!\n\nPlease check ~/.halcyrix/halcyrix");
        gtk_widget_destroy(box);
    }
    unsetenv("LD_LIBRARY_PATH");
    struct sigaction pipeSignal;
    sigaction(SIGPIPE, nullptr, &pipeSignal);
    EXPECT_EQ(pipeSignal.sa_handler, SIG_IGN) << "the updater goes on as it was";
}

TEST_F(MainWindow, PlayBecomesTheGame) {
    const ScratchDir dir;
    WriteFile("halcyrix", kStartScript);
    const pid_t child = fork();
    if (child == 0) {
        sigset_t blocked;
        sigfillset(&blocked);
        sigprocmask(SIG_SETMASK, &blocked, nullptr);
        dup2(open("/dev/null", O_RDWR), STDIN_FILENO);
        dup2(STDIN_FILENO, STDERR_FILENO);
        setenv("HOME", dir.Path().c_str(), 1);
        unsetenv("LD_LIBRARY_PATH");
        on_start_clicked(nullptr, nullptr);
        _exit(1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), kScriptRan);
    EXPECT_EQ(ReadFile("told"), ScriptTells("0  ./drivers:."));
}

TEST_F(MainWindow, HelpRunsTheBrowserOnTheManual) {
    const ScratchDir dir;
    setenv("HOME", "/my home", 1);
    setenv("BROWSER", "echo '%s' >seen", 1);
    on_help_clicked(nullptr, nullptr);
    int status = -1;
    wait(&status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ReadFile("seen"), "file:/my home/.halcyrix/manual.html\n");
}

TEST_F(MainWindow, TellsWhenNoBrowserCouldBeStarted) {
    setenv("HOME", "/my home", 1);
    sigset_t childSignal, before;
    sigemptyset(&childSignal);
    sigaddset(&childSignal, SIGCHLD);
    sigprocmask(SIG_BLOCK, &childSignal, &before);
    signal(SIGCHLD, sighandler);
    const char* expected =
        "$BROWSER is not set correctly -- \ncouldn't open a browser.  Please open\n\n"
        "file:/my home/.halcyrix/manual.html\n\nin your browser to view the manual.\n\n"
        "Please see " HALCYRIX_BROWSER_HELP_URL
        "\nfor information on how to fix this in the future.";
    const struct {
        const char* browser;
        bool notice;
    } cases[] = {{nullptr, true}, {"exit 1", false}, {"kill -9 $$", false}, {nullptr, true}};
    for (const auto& c : cases) {
        unsetenv("BROWSER");
        if (c.browser != nullptr) setenv("BROWSER", c.browser, 1);
        on_help_clicked(nullptr, nullptr);
        sigsuspend(&before);
        EXPECT_TRUE(gtkidlehandler(nullptr));
        EXPECT_TRUE(gtkidlehandler(nullptr));
        GtkWidget* box = FindWindow("Error opening URL");
        ASSERT_EQ(box != nullptr, c.notice);
        if (box == nullptr) continue;
        EXPECT_EQ(LabelText(box), expected);
        gtk_widget_destroy(box);
        EXPECT_EQ(FindWindow("Error opening URL"), nullptr);
    }
    signal(SIGCHLD, SIG_DFL);
    sigprocmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    const XServer server;
    if (!server.Running()) return kSkipped;
    signal(SIGPIPE, SIG_IGN);
    gtk_init(&argc, &argv);
    FailOnWarnings();
    return RUN_ALL_TESTS();
}
