#include "app/window_events.h"

#include <algorithm>
#include <cstdlib>

#include "app/home.h"

EventLoop event_loop;
bool input_pending = false;

namespace {

constexpr guint32 kDispatchPeriod = 100;  // milliseconds
constexpr uint64_t kWindowPeriod = 50;    // milliseconds

const IO_Event* client_socket = nullptr;
bool in_dispatch = false;
bool quitting = false;
int input_tag = -1;  // of the GTK input watch; -1 for none
int input_fd = -1;   // the descriptor it was made for

bool wants_input() { return client_socket != nullptr && (client_socket->m_flags & IO_READ) != 0; }

// Also forgets its input, which nobody will read: the window's events would wait for it.
void drop_stale_watch() {
    if (input_tag == -1 || (wants_input() && client_socket->m_fd == input_fd)) return;
    gtk_input_remove(static_cast<guint>(input_tag));
    input_tag = -1;
    input_pending = false;
}

// Keeps the window alive during a long pass: checking many small files reports no progress. Armed
// only during a pass; earlier, GTK would see the pass's own input and yield.
class WindowTimer : public Timer_Event {
public:
    using Timer_Event::Timer_Event;

    void OnTimer(uint64_t now) override {
        process_window_events();
        // After the clock was set back, `now` is the later one, and a timer due before it would
        // fire again and again.
        ScheduleAt(std::max(now, EventLoop::Now()) + kWindowPeriod);
    }
};

WindowTimer window_timer(&event_loop);

void dispatch_pass() {
    if (quitting) return;
    // While it is the only one, a timer is fired however long it is overdue.
    event_loop.RunTimers();
    window_timer.Schedule(kWindowPeriod);
    event_loop.Dispatch(0);
    window_timer.Cancel();
    sync_input_watch();
    // When no host is left, the indicator is not told of the session's end.
    if (client_socket != nullptr && client_socket->m_flags == 0) unlock_game_home();
}

}  // namespace

void join_main_loop(const IO_Event* socket) {
    client_socket = socket;
    sync_input_watch();
    gtk_timeout_add(kDispatchPeriod, gtktimerhandler, nullptr);
}

void sync_input_watch() {
    drop_stale_watch();
    if (client_socket == nullptr) return;
    const int fd = client_socket->m_fd;
    if (wants_input() && input_tag == -1 && fd != -1) {
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

void process_window_events() {
    drop_stale_watch();
    while (gtk_events_pending() && !input_pending && !quitting) gtk_main_iteration_do(FALSE);
    quit_if_requested();
}

void request_quit() {
    quitting = true;
    if (gtk_main_level() > 0) gtk_main_quit();
}

void quit_if_requested() {
    if (quitting) exit(0);
}
