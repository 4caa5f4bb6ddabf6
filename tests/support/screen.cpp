#include "tests/support/screen.h"

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

Window TestScreen::AwaitWindow(pid_t program, const std::string& title) {
    Awaiting("the window \"" + title + "\"");
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
        if (count > 0) return found[0];
        XEvent changed;
        XNextEvent(m_xdo->xdpy, &changed);
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
