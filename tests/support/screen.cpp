#include "tests/support/screen.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "tests/support/patience.h"
extern "C" {
#include <xdo.h>
}

TestScreen::TestScreen() {
    const Patience patience("the X server");
    int ends[2];
    if (pipe(ends) != 0) abort();
    m_server = fork();
    if (m_server == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        execlp("Xvfb", "Xvfb", "-displayfd", std::to_string(ends[1]).c_str(), "-screen", "0",
               "1024x768x24", "-nolisten", "tcp", "-noreset", nullptr);
        _exit(127);
    }
    close(ends[1]);
    char number[16] = "";
    const ssize_t got = read(ends[0], number, sizeof number - 1);
    close(ends[0]);
    if (got <= 0) {
        printf("Failure: Xvfb cannot be started\n");
        exit(1);
    }
    setenv("DISPLAY", (":" + std::to_string(atoi(number))).c_str(), 1);
    setenv("GTK2_RC_FILES", "/dev/null", 1);
    unsetenv("GTK_MODULES");
    m_xdo = xdo_new(nullptr);
    // A window may go while it is being looked at.
    XSetErrorHandler([](Display*, XErrorEvent*) { return 0; });
    XSelectInput(m_xdo->xdpy, DefaultRootWindow(m_xdo->xdpy), SubstructureNotifyMask);
}

TestScreen::~TestScreen() {
    xdo_free(m_xdo);
    kill(m_server, SIGTERM);
    waitpid(m_server, nullptr, 0);
}

Window TestScreen::AwaitWindow(pid_t program, const std::string& title) {
    const Patience patience("the window \"" + title + "\"");
    const std::string name = "^" + title + "$";
    xdo_search_t wanted{};
    wanted.winname = name.c_str();
    wanted.pid = program;
    wanted.only_visible = 1;
    wanted.max_depth = 1;
    wanted.require = xdo_search_t::SEARCH_ALL;
    wanted.searchmask = SEARCH_NAME | SEARCH_PID | SEARCH_ONLYVISIBLE;
    for (;;) {
        Window* found = nullptr;
        unsigned count = 0;
        xdo_search_windows(m_xdo, &wanted, &found, &count);
        const Window window = count > 0 ? found[0] : 0;
        free(found);
        if (window != 0) return window;
        XEvent changed;
        XNextEvent(m_xdo->xdpy, &changed);
    }
}

void TestScreen::Close(Window window) {
    XEvent event{};
    event.xclient.type = ClientMessage;
    event.xclient.window = window;
    event.xclient.message_type = XInternAtom(m_xdo->xdpy, "WM_PROTOCOLS", False);
    event.xclient.format = 32;
    event.xclient.data.l[0] =
        static_cast<long>(XInternAtom(m_xdo->xdpy, "WM_DELETE_WINDOW", False));
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
