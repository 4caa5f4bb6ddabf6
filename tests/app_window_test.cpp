// The windows and what is shown in them, in the test's own process.
#include "app/browser.h"
#include "app/bugwindow.h"
#include "app/gui_log.h"
#include "app/hand_off.h"
#include "app/mainwindow.h"
#include "app/message_box.h"
#include "app/widgets.h"
#include "app/window_events.h"
#include "tests/support/gtk_windows.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/screen.h"

namespace {

class Windows : public testing::Test {
protected:
    Windows() {
        static const auto* const screen = new TestScreen;
        if (screen == nullptr || !gtk_init_check(nullptr, nullptr)) abort();
        g_log_set_always_fatal(GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL));
        Show("DejaVu Sans 10");
    }
    ~Windows() override { gtk_widget_destroy(m_window); }

    void Show(const char* font) {
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
        if (m_window != nullptr) gtk_widget_destroy(m_window);
        m_window = create_mainwindow();
        keep_widgets(m_window);
        gtk_widget_show(m_window);
        ProcessEvents();
    }
    static int Width(GtkWidget* window) {
        ProcessEvents();
        int width, height;
        gtk_window_get_size(GTK_WINDOW(window), &width, &height);
        EXPECT_LE(height, 768 - 40) << "with a title bar";
        return width;
    }

    GtkWidget* m_window = nullptr;
    _Log m_log;
};

TEST_F(Windows, ConsoleTakesAnyBytesAndGrowsAtItsEndWhateverThePlayerDoesInIt) {
    for (const char* piece : {"a\xE2", "\x82", "\xAC!\n", "\xC3", "x\n", "caf\xE9 au\n\xFF", "\n"})
        m_log.Print(piece);
    EXPECT_EQ(TextOf(console), "a\u20AC!\n\uFFFDx\ncaf\uFFFD au\n\uFFFD\n");

    for (int i = 0; i < 100; ++i) m_log.Printf("line\n");
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(console));
    GtkTextIter start, end;
    gtk_text_buffer_get_start_iter(buffer, &start);
    gtk_text_buffer_place_cursor(buffer, &start);
    m_log.Printf("after a click\n");
    ProcessEvents();
    const GtkAdjustment* shown = GTK_TEXT_VIEW(console)->vadjustment;
    EXPECT_EQ(shown->value + shown->page_size, shown->upper) << "the end is in view";

    gtk_text_buffer_get_bounds(buffer, &start, &end);
    gtk_text_buffer_select_range(buffer, &end, &start);
    m_log.Printf("while all is selected\n");
    gtk_text_buffer_get_selection_bounds(buffer, &start, &end);
    EXPECT_TRUE(gtk_text_iter_is_start(&start));
    EXPECT_EQ(gtk_text_iter_get_line(&end), 105);
    g_signal_emit_by_name(console, "insert-at-cursor", "typed");
    EXPECT_TRUE(TextOf(console).ends_with("line\nafter a click\nwhile all is selected\n"));
}

TEST_F(Windows, ProgressTellsKilobytesAndPercentOnceInFiftyMilliseconds) {
    const std::tuple<int64_t, int64_t, const char*, double> cases[] = {
        {1536000, 3072000, "1500/3000k [50%]", 0.5},
        {4096, 2048, "4/2k [200%]", 0.5},  // beyond the total the bar stays
        {500, 1000, "0/0k [50%]", 0.5},    // below a kilobyte the bytes count
        {5, 0, "0/0k [50%]", 0.5},         // no total: nothing changes
        {1027034112, 2599999488, "1002963/2539062k [39%]", 1027034112.0 / 2599999488},
    };
    GtkProgressBar* bar = GTK_PROGRESS_BAR(progress1);
    for (const auto& [done, total, text, fraction] : cases) {
        _Log().ShowProgress(done, total);
        EXPECT_STREQ(gtk_progress_bar_get_text(bar), text);
        EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(bar), fraction);
    }
    const uint64_t start = EventLoop::Now();
    m_log.SetProgress(1024, 4096);
    const std::string first = gtk_progress_bar_get_text(bar);
    while (gtk_progress_bar_get_text(bar) == first) m_log.SetLongProgress(2048, 4096);
    EXPECT_TRUE(EventLoop::Now() - start > 50 && EventLoop::Now() - start < 500);
    m_log.SetProgress(4096, 4096);
    EXPECT_STREQ(gtk_progress_bar_get_text(bar), "4/4k [100%]");
}

// Works in a dispatch pass that the timer has started.
struct InPass : Poll_Event {
    explicit InPass(std::function<void()> work) : Poll_Event(&event_loop), m_work(std::move(work)) {
        Register();
        gtktimerhandler(nullptr);
        Unregister();
    }
    void OnPoll() override { m_work(); }
    const std::function<void()> m_work;
};

TEST_F(Windows, HaveTheirTurnInAPassUnlessThereIsInputToRead) {
    static IO_Event socket;
    socket.m_fd = open("/dev/zero", O_RDONLY);
    join_main_loop(&socket);
    const auto see = [](gpointer count) { return --*static_cast<int*>(count); };
    for (const uint32_t flags : {IO_WRITE, IO_READ}) {
        socket.m_flags = IO_READ;
        sync_input_watch();
        int unseen = 1;
        const guint source = g_idle_add(see, &unseen);
        const InPass pass([&] {
            socket.m_flags = flags;
            m_log.SetProgress(1, 1);
            m_log.SetStatus("busy \xFF");
        });
        EXPECT_EQ(unseen, flags == IO_READ ? 1 : 0);
        EXPECT_EQ(input_pending, flags == IO_READ);
        if (unseen != 0) g_source_remove(source);
    }
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    socket.m_fd = ends[0];
    sync_input_watch();
    ProcessEvents();  // has no end while the descriptor before is watched
    EXPECT_EQ(LabelText(progress2), "busy \uFFFD");
    gtk_statusbar_pop(GTK_STATUSBAR(progress2), kStatusContext);
    EXPECT_EQ(LabelText(progress2), "") << "one message at a time";
    socket.m_flags = 0;
    sync_input_watch();

    int unseen = 1;
    g_idle_add(see, &unseen);
    const InPass longPass([&] {
        while (unseen > 0) event_loop.RunTimers();
    });
}

TEST_F(Windows, KeepTheirSizeAndShowAllTexts) {
    const std::string word(5000, 'w'), path(200, 'W');
    for (const char* font :
         {"DejaVu Sans 8", "DejaVu Sans 10", "DejaVu Sans 18", "DejaVu Sans 40"}) {
        SCOPED_TRACE(font);
        Show(font);
        const int width = Width(m_window);
        EXPECT_LE(width, 1024);
        EXPECT_GE(width,
                  text_size(progress2, "Waiting; #100/250 in queue, approx. 02:46:40").width);
        m_log.Printf("%s\n", word.c_str());
        EXPECT_EQ(Width(m_window), width);

        GtkWidget* bug = create_bugwindow();
        gtk_window_resize(GTK_WINDOW(bug), 1024, 600);
        gtk_widget_show(bug);
        EXPECT_EQ(Width(bug), 1024);
        GtkTextView* entry = GTK_TEXT_VIEW(FindInside(bug, GTK_TYPE_TEXT_VIEW));
        gtk_text_buffer_set_text(gtk_text_view_get_buffer(entry), word.data(), -1);
        EXPECT_EQ(Width(bug), 1024);
        gtk_widget_destroy(bug);

        message_box(("not \xFF text\n" + path).c_str(), "Message");
        GtkWidget* box = FindWindow("Message");
        EXPECT_LE(Width(box), 768);
        EXPECT_EQ(LabelText(box), "not \uFFFD text\n" + path);
        GtkWidget* close = FindInside(box, GTK_TYPE_BUTTON);
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(box)), close);
        gtk_button_clicked(GTK_BUTTON(close));
        EXPECT_EQ(FindWindow("Message"), nullptr);
    }
    browser_failed = 1;
    for (int check = 0; check < 2; ++check) gtkidlehandler(nullptr);
    gtk_widget_destroy(FindWindow("Error opening URL"));
    EXPECT_EQ(FindWindow("Error opening URL"), nullptr) << "told once";
}

TEST(Programs, AreNamedAndCheckedBeforeTheyStart) {
    const std::string most(2046, 'x');
    EXPECT_EQ(expand_browser_command("%s %s %s %s 100%% %d %s %", "A"), "A A A A 100% %d %s %");
    EXPECT_EQ(expand_browser_command(most + "%s%s", "A"), most + "A");
    EXPECT_TRUE(is_updater_copy_name("/a/myupdate.rlb"));
    EXPECT_FALSE(is_updater_copy_name(nullptr) || is_updater_copy_name("update.rlb/x"));
}

}  // namespace
