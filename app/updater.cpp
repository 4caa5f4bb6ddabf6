#include "app/updater.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "app/home.h"
#include "app/quit.h"
#include "app/support.h"
#include "app/widgets.h"

EventLoop event_loop;

namespace {

constexpr mode_t kDirectoryMode = 0755;
constexpr guint32 kDispatchPeriod = 100;  // milliseconds
constexpr uint64_t kWindowPeriod = 50;    // milliseconds

bool in_dispatch = false;
int input_tag = -1;  // of the GTK input watch; -1 for none
int input_fd = -1;   // the descriptor it was made for

void dispatch_pass() {
    if (!quit_requested()) event_loop.Dispatch(0);
    sync_input_watch();
}

// Keeps the window alive in a long pass: a session that checks many small files reports no
// progress.
class WindowTimer : public Timer_Event {
public:
    using Timer_Event::Timer_Event;

    void OnTimer(uint64_t) override {
        process_window_events();
        Schedule(kWindowPeriod);
    }
};

WindowTimer window_timer(&event_loop);

void enter_game_home() {
    const std::string home = GameHome();
    if (access(home.c_str(), F_OK) != 0) {
        mkdir(home.c_str(), kDirectoryMode);
        const std::string text = "The directory\n\n" + home +
                                 "\n\nhas been created to store the Halcyrix\nprogram and data "
                                 "files.\n\nThose files are being downloaded now.";
        message_box(text.c_str(), "Halcyrix Home Directory");
    }
    // A failure shows in what is done with the files.
    [[maybe_unused]] const int entered = chdir(home.c_str());
}

}  // namespace

UpdateClient* update_client = nullptr;
_Log* gui_log = nullptr;
bool self_update_pending = false;
bool input_pending = false;

void start_updater(int selfUpdate) {
    enter_game_home();
    if (access("manual.html", F_OK) == 0) gtk_widget_set_sensitive(help_button, TRUE);
    self_update_pending = selfUpdate != 0;
    gui_log = new _Log;
    gtk_statusbar_push(GTK_STATUSBAR(progress2), kStatusContext, "Initializing...");
    update_client = new UpdateClient(&event_loop, gui_log);
    gamelog = gui_log;

    gtk_main_iteration_do(FALSE);
    if (quit_requested() || !start_session(selfUpdate)) return;
    sync_input_watch();
    gtk_timeout_add(kDispatchPeriod, gtktimerhandler, nullptr);
    window_timer.Schedule(kWindowPeriod);
    if (progress1 == nullptr) return;
    gtk_progress_set_format_string(GTK_PROGRESS(progress1), "");
    gtk_progress_configure(GTK_PROGRESS(progress1), 0.0, 0.0, 1.0);
}

int start_session(int selfUpdate) {
    const int started = selfUpdate ? update_client->Start(0, "linux64upd", nullptr)
                                   : update_client->Start(1, "linux64", "common", nullptr);
    if (!started) {
        gamelog->Printf(
            "Unable to connect to the Brenmoor update server!\n"
            "Please re-run the application to retry.\n");
    }
    return started;
}

void sync_input_watch() {
    const int fd = update_client->m_fd;
    const bool wantsInput = (update_client->m_flags & IO_READ) != 0;
    if (input_tag != -1 && (!wantsInput || fd != input_fd)) {
        gtk_input_remove(static_cast<guint>(input_tag));
        input_tag = -1;
    }
    if (wantsInput && input_tag == -1 && fd != -1) {
        input_tag = static_cast<int>(
            gtk_input_add_full(fd, GDK_INPUT_READ, gtkinputhandler, nullptr, nullptr, nullptr));
    }
    input_fd = fd;
}

void gtkinputhandler(gpointer, gint, GdkInputCondition) {
    input_pending = true;
    if (in_dispatch) return;
    in_dispatch = true;
    do {
        input_pending = false;
        dispatch_pass();
    } while (input_pending);
    in_dispatch = false;
}

gboolean gtktimerhandler(gpointer) {
    if (in_dispatch) return TRUE;
    in_dispatch = true;
    dispatch_pass();
    in_dispatch = false;
    return TRUE;
}
