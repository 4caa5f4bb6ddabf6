#include "tests/support/screen.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <csignal>
#include <sstream>

#include "tests/support/await.h"
extern "C" {
#include <xdo.h>
}

TestScreen::TestScreen()
    : m_server(
          {"sh", "-c",
           "exec Xvfb -displayfd 1 -screen 0 1024x768x24 -nolisten tcp -noreset 2>/dev/null"}) {
    m_server.AwaitWords("\n");
    setenv("DISPLAY", (":" + std::to_string(std::stoi(m_server.Said()))).c_str(), 1);
    setenv("GTK2_RC_FILES", "/dev/null", 1);
    unsetenv("GTK_MODULES");
    m_xdo = xdo_new(nullptr);
    // A window may go while it is being looked at.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    XSelectInput(m_xdo->xdpy, DefaultRootWindow(m_xdo->xdpy), SubstructureNotifyMask);
}

TestScreen::~TestScreen() {
    kill(m_server.Pid(), SIGTERM);
    m_server.Wait();
}

// libxdo would do this, but not survive a window that goes meanwhile.
static bool Shows(Display* display, Window window, pid_t program, const std::string& title) {
    XWindowAttributes attributes;
    char* name = nullptr;
    const bool named = XGetWindowAttributes(display, window, &attributes) &&
                       attributes.map_state == IsViewable && XFetchName(display, window, &name) &&
                       name == title;
    XFree(name);
    Atom type;
    int format;
    unsigned long count = 0, left;
    unsigned char* owner = nullptr;
    XGetWindowProperty(display, window, XInternAtom(display, "_NET_WM_PID", False), 0, 1, False,
                       XA_CARDINAL, &type, &format, &count, &left, &owner);
    const bool its = owner != nullptr && count == 1 && *reinterpret_cast<long*>(owner) == program;
    XFree(owner);
    return named && its;
}

Window TestScreen::AwaitWindow(pid_t program, const std::string& title) {
    Awaiting("the window \"" + title + "\"");
    Display* display = m_xdo->xdpy;
    for (;;) {
        Window root, parent, *windows = nullptr, found = 0;
        unsigned count = 0;
        XQueryTree(display, DefaultRootWindow(display), &root, &parent, &windows, &count);
        for (unsigned i = 0; i < count && found == 0; ++i) {
            if (Shows(display, windows[i], program, title)) found = windows[i];
        }
        XFree(windows);
        if (found != 0) return found;
        XEvent changed;
        XNextEvent(display, &changed);
    }
}

void TestScreen::Close(Window window) {
    const auto atom = [this](const char* name) { return XInternAtom(m_xdo->xdpy, name, False); };
    XEvent event{};
    event.xclient = {ClientMessage, 0, False, nullptr, window, atom("WM_PROTOCOLS"), 32, {}};
    event.xclient.data.l[0] = static_cast<long>(atom("WM_DELETE_WINDOW"));
    XSendEvent(m_xdo->xdpy, window, False, NoEventMask, &event);
    XFlush(m_xdo->xdpy);
}

void TestScreen::Press(Window window, const std::string& keys) {
    XSetInputFocus(m_xdo->xdpy, window, RevertToPointerRoot, CurrentTime);
    std::istringstream words(keys);
    for (std::string key; words >> key;) {
        xdo_send_keysequence_window(m_xdo, CURRENTWINDOW, key.c_str(), 0);
    }
}
