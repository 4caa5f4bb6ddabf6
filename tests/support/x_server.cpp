#include "tests/support/x_server.h"

#include <X11/Xatom.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kPatience = 60000;  // milliseconds

[[noreturn]] void RunServer(int displayFd) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    const std::string fd = std::to_string(displayFd);
    execlp("Xvfb", "Xvfb", "-displayfd", fd.c_str(), "-screen", "0", "1024x768x24", "-nolisten",
           "tcp", "-noreset", nullptr);
    _exit(127);
}

}  // namespace

XServer::XServer() {
    int ends[2];
    if (pipe(ends) != 0) abort();
    m_pid = fork();
    if (m_pid == 0) RunServer(ends[1]);
    close(ends[1]);
    char number[16] = "";
    FILE* answer = fdopen(ends[0], "r");
    m_running = fgets(number, sizeof number, answer) != nullptr;
    fclose(answer);
    if (!m_running) {
        printf("Skipped: Xvfb cannot be started here; is the package xvfb installed?\n");
        return;
    }
    setenv("DISPLAY", (":" + std::to_string(atoi(number))).c_str(), 1);
    setenv("GTK2_RC_FILES", "/dev/null", 1);
    unsetenv("GTK_MODULES");
}

XServer::~XServer() {
    kill(m_pid, SIGTERM);
    waitpid(m_pid, nullptr, 0);
}

WindowWatch::WindowWatch() : m_display(XOpenDisplay(nullptr)) {
    if (m_display == nullptr) abort();
    // A window may go while it is being looked at.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    XSelectInput(m_display, DefaultRootWindow(m_display), SubstructureNotifyMask);
}

WindowWatch::~WindowWatch() {
    XCloseDisplay(m_display);
}

pid_t WindowWatch::Owner(Window window) {
    Atom type;
    int format;
    unsigned long count = 0, left;
    unsigned char* value = nullptr;
    XGetWindowProperty(m_display, window, XInternAtom(m_display, "_NET_WM_PID", False), 0, 1, False,
                       XA_CARDINAL, &type, &format, &count, &left, &value);
    const auto owner = count == 1 ? static_cast<pid_t>(*reinterpret_cast<long*>(value)) : -1;
    if (value != nullptr) XFree(value);
    return owner;
}

Window WindowWatch::Find(pid_t program, const std::string& title) {
    Window root, parent, *windows = nullptr, found = 0;
    unsigned count = 0;
    XQueryTree(m_display, DefaultRootWindow(m_display), &root, &parent, &windows, &count);
    for (unsigned i = 0; i < count; ++i) {
        XWindowAttributes attributes;
        char* name = nullptr;
        if (XGetWindowAttributes(m_display, windows[i], &attributes) &&
            attributes.map_state == IsViewable && XFetchName(m_display, windows[i], &name) &&
            name == title && Owner(windows[i]) == program) {
            found = windows[i];
        }
        if (name != nullptr) XFree(name);
    }
    if (windows != nullptr) XFree(windows);
    return found;
}

Window WindowWatch::WaitFor(pid_t program, const std::string& title) {
    for (;;) {
        while (XPending(m_display) > 0) {
            XEvent passed;
            XNextEvent(m_display, &passed);
        }
        if (const Window window = Find(program, title)) return window;
        pollfd server{ConnectionNumber(m_display), POLLIN, 0};
        if (XQLength(m_display) == 0 && poll(&server, 1, kPatience) == 0) return 0;
    }
}

void WindowWatch::Close(Window window) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = XInternAtom(m_display, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] = static_cast<long>(XInternAtom(m_display, "WM_DELETE_WINDOW", False));
    XSendEvent(m_display, window, False, NoEventMask, &event);
    XFlush(m_display);
}
