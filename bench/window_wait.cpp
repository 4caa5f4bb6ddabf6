// The longest time that an event of the window waits while a session runs:
//
//   HOME=DIRECTORY bench-window
//
// Runs the game's session in the main window, in the display, with the server at 127.0.0.3. A
// second process sends the window an event every few milliseconds, with the time at which it did.
// Prints how many came and how long they waited, and ends with the session.

#include <X11/Xlib.h>
#include <gdk/gdkx.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "app/mainwindow.h"
#include "app/updater.h"

namespace {

constexpr char kProbe[] = "HALCYRIX_PROBE";
constexpr useconds_t kPeriod = 5000;     // microseconds
constexpr guint32 kEndCheckPeriod = 50;  // milliseconds

long Microseconds() {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
}

// The second process, which ends with the first.
[[noreturn]] void SendProbes(int windowPipe) {
    Window window = 0;
    if (read(windowPipe, &window, sizeof window) != sizeof window) _exit(1);
    Display* display = XOpenDisplay(nullptr);
    if (display == nullptr) _exit(1);
    const Atom probe = XInternAtom(display, kProbe, False);
    while (getppid() != 1) {
        // The fields hold 32 bits each.
        const long now = Microseconds();
        XEvent event{};
        event.xclient.type = ClientMessage;
        event.xclient.window = window;
        event.xclient.message_type = probe;
        event.xclient.format = 32;
        event.xclient.data.l[0] = now & 0x7FFFFFFF;
        event.xclient.data.l[1] = now >> 31;
        XSendEvent(display, window, False, NoEventMask, &event);
        XFlush(display);
        usleep(kPeriod);
    }
    _exit(0);
}

long longest = 0;
long sum = 0;
long count = 0;

GdkFilterReturn on_probe(GdkXEvent* event, GdkEvent*, gpointer) {
    const XClientMessageEvent& message = static_cast<XEvent*>(event)->xclient;
    const long waited = Microseconds() - (message.data.l[1] << 31 | message.data.l[0]);
    longest = std::max(longest, waited);
    sum += waited;
    ++count;
    return GDK_FILTER_REMOVE;
}

gboolean end_with_session(gpointer) {
    if (GTK_WIDGET_SENSITIVE(start_button)) gtk_main_quit();
    return TRUE;
}

}  // namespace

int main(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    int windowPipe[2];
    if (pipe(windowPipe) != 0) return 1;
    const pid_t prober = fork();
    if (prober == 0) {
        close(windowPipe[1]);
        SendProbes(windowPipe[0]);
    }
    gtk_init(&argc, &argv);
    GtkWidget* window = create_mainwindow();
    gtk_widget_show(window);
    keep_widgets(window);
    gdk_display_add_client_message_filter(gdk_display_get_default(), gdk_atom_intern(kProbe, FALSE),
                                          on_probe, nullptr);
    const Window id = GDK_WINDOW_XID(window->window);
    if (write(windowPipe[1], &id, sizeof id) != sizeof id) return 1;

    const long began = Microseconds();
    start_updater(0);
    gtk_timeout_add(kEndCheckPeriod, end_with_session, nullptr);
    gtk_main();
    kill(prober, SIGTERM);
    printf("%ld events in %.2f s, longest wait %.1f ms, mean %.1f ms\n", count,
           static_cast<double>(Microseconds() - began) / 1e6, static_cast<double>(longest) / 1e3,
           static_cast<double>(sum) / 1e3 / static_cast<double>(std::max(count, 1L)));
    // The updater's objects are never destroyed, as in the program.
    fflush(stdout);
    _exit(0);
}
