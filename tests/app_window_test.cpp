// The windows and what is shown in them, in the test's own process.
#include <gtest/gtest.h>

#include "app/browser.h"
#include "app/bugwindow.h"
#include "app/gui_log.h"
#include "app/mainwindow.h"
#include "app/message_box.h"
#include "app/programs.h"
#include "app/widgets.h"
#include "app/window_events.h"
#include "tests/support/gtk_windows.h"
#include "tests/support/scratch_dir.h"
#include "tests/support/screen.h"

namespace {

class Windows : public testing::Test {
protected:
    Windows() {
        static const TestScreen* const screen = new TestScreen;
        static const bool ready = screen != nullptr && gtk_init_check(nullptr, nullptr);
        EXPECT_TRUE(ready);
        g_log_set_always_fatal(GLogLevelFlags(G_LOG_LEVEL_WARNING | G_LOG_LEVEL_CRITICAL));
        UseFont("DejaVu Sans 10");
        Show();
    }
    ~Windows() override { gtk_widget_destroy(m_window); }

    static void UseFont(const char* font) {
        g_object_set(gtk_settings_get_default(), "gtk-font-name", font, nullptr);
    }
    void Show() {
        m_window = create_mainwindow();
        keep_widgets(m_window);
        gtk_widget_show(m_window);
        ProcessEvents();
    }
    static std::string Progress() { return gtk_progress_bar_get_text(GTK_PROGRESS_BAR(progress1)); }
    static int Width(GtkWidget* window) {
        int width, height;
        gtk_window_get_size(GTK_WINDOW(window), &width, &height);
        EXPECT_LE(height, 768 - 40) << "with a title bar";
        return width;
    }

    GtkWidget* m_window;
    _Log m_log;
};

TEST_F(Windows, ConsoleTakesAnyBytesInAnyPieces) {
    const struct {
        std::vector<const char*> pieces;
        std::string shown;
    } cases[] = {
        {{"a\xE2", "\x82", "\xAC!\n"}, "a\u20AC!\n"},
        {{"\xF0\x9F", "\x98\x80\n"}, "\U0001F600\n"},
        {{"\xC3", "x\n"}, "\uFFFDx\n"},
        {{"caf\xE9 au\n", "\xFF", "\n"}, "caf\uFFFD au\n\uFFFD\n"},
        {{"\xED\xA0\x80\n"}, "\uFFFD\uFFFD\uFFFD\n"},
    };
    std::string all;
    for (const auto& c : cases) {
        for (const char* piece : c.pieces) m_log.Print(piece);
        EXPECT_EQ(TextOf(console), all += c.shown);
    }
}

TEST_F(Windows, ConsoleGrowsAtItsEndWhateverThePlayerDoesInIt) {
    for (int i = 0; i < 100; ++i) m_log.Printf("line\n");
    ProcessEvents();
    GtkTextBuffer* buffer = gtk_text_view_get_buffer(GTK_TEXT_VIEW(console));
    GtkTextIter start, end;
    gtk_text_buffer_get_start_iter(buffer, &start);
    gtk_text_buffer_place_cursor(buffer, &start);
    m_log.Printf("after a click\n");
    EXPECT_TRUE(TextOf(console).ends_with("line\nafter a click\n"));
    ProcessEvents();
    gtk_text_buffer_get_end_iter(buffer, &end);
    GdkRectangle view, last;
    gtk_text_view_get_visible_rect(GTK_TEXT_VIEW(console), &view);
    gtk_text_view_get_iter_location(GTK_TEXT_VIEW(console), &end, &last);
    EXPECT_LE(last.y + last.height, view.y + view.height) << "the end is in view";

    const std::string before = TextOf(console);
    gtk_text_buffer_get_bounds(buffer, &start, &end);
    gtk_text_buffer_select_range(buffer, &end, &start);
    m_log.Printf("while all is selected\n");
    gtk_text_buffer_get_selection_bounds(buffer, &start, &end);
    gchar* selected = gtk_text_buffer_get_text(buffer, &start, &end, TRUE);
    EXPECT_EQ(selected, before);
    g_free(selected);
    EXPECT_EQ(TextOf(console), before + "while all is selected\n");
    EXPECT_FALSE(gtk_text_view_get_cursor_visible(GTK_TEXT_VIEW(console)));
}

TEST_F(Windows, ProgressTellsKilobytesAndPercent) {
    const struct {
        int64_t done, total;
        const char* text;
        double fraction;
    } cases[] = {
        {1536000, 3072000, "1500/3000k [50%]", 0.5},
        {1023, 1048576, "0/1024k [0%]", 1023.0 / 1048576},
        {2097152, 2097152, "2048/2048k [100%]", 1.0},
        {4096, 2048, "4/2k [200%]", 1.0},  // beyond the total the bar stays
        {500, 1000, "0/0k [50%]", 0.5},    // below a kilobyte the bytes count
        {5, 0, "0/0k [50%]", 0.5},         // no total: nothing changes
        {2147483647, 2147483647, "2097151/2097151k [100%]", 1.0},
        {1027034112, 2599999488, "1002963/2539062k [39%]", 1027034112.0 / 2599999488},
        {45000000000000, 90000000000000, "43945312500/87890625000k [50%]", 0.5},
    };
    for (const auto& c : cases) {
        _Log().ShowProgress(c.done, c.total);
        EXPECT_EQ(Progress(), c.text) << c.done << " of " << c.total;
        EXPECT_DOUBLE_EQ(gtk_progress_bar_get_fraction(GTK_PROGRESS_BAR(progress1)), c.fraction);
    }
}

TEST_F(Windows, ProgressIsShownOnceInFiftyMillisecondsAndAtTheTotal) {
    uint64_t start;
    do {  // until the machine was quick enough for all calls
        m_log = {};
        start = EventLoop::Now();
        m_log.SetProgress(1024, 4096);
        m_log.SetProgress(2048, 4096);
        m_log.SetLongProgress(3072, int64_t{4096} << 20);
    } while (EventLoop::Now() - start > 50);
    EXPECT_EQ(Progress(), "1/4k [25%]");
    m_log.SetProgress(4096, 4096);
    EXPECT_EQ(Progress(), "4/4k [100%]");
    for (start = EventLoop::Now(); EventLoop::Now() - start <= 51;) continue;
    m_log.SetProgress(3072, 4096);
    EXPECT_EQ(Progress(), "3/4k [75%]");
}

TEST_F(Windows, ReportsLetEventsInUnlessInputWaits) {
    for (const bool waits : {false, true}) {
        for (const bool status : {false, true}) {
            bool seen = false;
            const auto see = [](gpointer flag) -> gboolean {
                return !(*static_cast<bool*>(flag) = true);
            };
            const guint source = g_idle_add(see, &seen);
            input_pending = waits;
            status ? m_log.SetStatus("busy") : m_log.SetProgress(1, 1);
            input_pending = false;
            EXPECT_EQ(seen, !waits);
            if (!seen) g_source_remove(source);
        }
    }
    m_log.SetStatus("version \xFF");
    EXPECT_EQ(LabelText(progress2), "version \uFFFD");
    gtk_statusbar_pop(GTK_STATUSBAR(progress2), kStatusContext);
    EXPECT_EQ(LabelText(progress2), "") << "one message at a time";
}

TEST_F(Windows, KeepTheirSizeAndShowAllTexts) {
    const std::string word(5000, 'w');
    for (const char* font : {"DejaVu Sans 8", "DejaVu Sans 10", "DejaVu Sans 18"}) {
        SCOPED_TRACE(font);
        UseFont(font);
        gtk_widget_destroy(m_window);
        Show();
        const int width = Width(m_window);
        EXPECT_GE(width,
                  text_size(progress2, "Waiting; #100/250 in queue, approx. 02:46:40").width);
        m_log.Printf("%s\n", word.c_str());
        ProcessEvents();
        EXPECT_EQ(Width(m_window), width);

        GtkWidget* bug = create_bugwindow();
        gtk_window_resize(GTK_WINDOW(bug), 1000, 600);
        gtk_widget_show(bug);
        ProcessEvents();
        int left[3], y;
        for (const int i : {1, 3}) {
            GtkLabel* label = GTK_LABEL(lookup_widget(bug, ("label" + std::to_string(i)).c_str()));
            gtk_label_get_layout_offsets(label, &left[i / 2], &y);
        }
        EXPECT_EQ(left[0], left[1]);
        GtkWidget* entry = lookup_widget(bug, "bug_entry");
        const int bugWidth = Width(bug);
        gtk_text_buffer_set_text(gtk_text_view_get_buffer(GTK_TEXT_VIEW(entry)), word.data(), -1);
        ProcessEvents();
        EXPECT_EQ(Width(bug), bugWidth);
        gtk_widget_destroy(bug);

        message_box(("not \xFF text\n" + std::string(200, 'W')).c_str(), "Message");
        ProcessEvents();
        GtkWidget* box = FindWindow("Message");
        EXPECT_EQ(LabelText(box), "not \uFFFD text\n" + std::string(200, 'W'));
        EXPECT_LE(Width(box), 768);
        EXPECT_EQ(gtk_window_get_focus(GTK_WINDOW(box)), FindInside(box, GTK_TYPE_BUTTON));
        gtk_button_clicked(GTK_BUTTON(FindInside(box, GTK_TYPE_BUTTON)));
        EXPECT_EQ(FindWindow("Message"), nullptr);
    }
}

TEST_F(Windows, FindWidgetsFromAnywhereInside) {
    EXPECT_EQ(lookup_widget(console, "statusbar1"), progress2);
    GtkWidget* menu = gtk_menu_new();
    gtk_menu_attach_to_widget(GTK_MENU(menu), console, nullptr);
    GtkWidget* apart = gtk_label_new("");
    g_object_ref_sink(apart);
    g_object_set_data(G_OBJECT(apart), "GladeParentKey", menu);
    EXPECT_EQ(lookup_widget(apart, "mainwindow"), m_window);
    g_object_unref(apart);
}

TEST(BrowserCommand, TakesTheAddressInPlaceOfFourMarks) {
    const std::pair<std::string, std::string> cases[] = {
        {"%s %s %s %s %s", "A A A A %s"},
        {"one:two", "one:two"},
        {"say 100%% %s", "say 100% A"},
        {"%%s %d %", "%s %d %"},
        {std::string(2046, 'x') + "%s%s", std::string(2046, 'x') + "A"},
    };
    for (const auto& [browser, command] : cases) {
        EXPECT_EQ(expand_browser_command(browser, "A"), command);
    }
}

TEST(UpdaterCopy, IsKnownByItsNameAndRefusedWhenCutOff) {
    EXPECT_TRUE(is_updater_copy_name("/a/myupdate.rlb"));
    EXPECT_FALSE(is_updater_copy_name("update.rlb/x"));
    EXPECT_FALSE(is_updater_copy_name("pdate.rlb"));
    EXPECT_FALSE(is_updater_copy_name(nullptr));

    const ScratchDir dir;
    const std::string program = ReadFile(UPDATER);
    const auto with = [&](size_t at, size_t size, char byte) {
        return std::string(program).replace(at, size, size, byte);
    };
    const struct {
        const char* claim;
        std::string contents;
        bool truncated;
    } cases[] = {
        {"whole", program, false},
        {"without its section table", with(0x28, 8, '\x7F'), false},
        {"cut in the middle", program.substr(0, 10000), true},
        {"cut in the header", program.substr(0, 20), true},
        {"cut in the first word", program.substr(0, 3), true},
        {"empty", "", true},
        {"segments beyond what can be told", with(0x20, 8, '\xFF'), true},
        {"a script", "#!/bin/sh\n", false},
    };
    for (const auto& c : cases) {
        WriteFile("copy", c.contents);
        EXPECT_EQ(is_truncated_elf("copy"), c.truncated) << c.claim;
    }
    EXPECT_FALSE(is_truncated_elf("missing"));
}

}  // namespace
