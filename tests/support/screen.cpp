#include "tests/support/screen.h"

#include <X11/Xlib.h>

TestScreen::TestScreen()
    : m_server(
          {"sh", "-c",
           "exec Xvfb -displayfd 1 -screen 0 1024x768x24 -nolisten tcp -noreset 2>/dev/null"}) {
    m_server.AwaitWords("\n");
    setenv("DISPLAY", (":" + std::to_string(std::stoi(m_server.Said()))).c_str(), 1);
    setenv("GTK2_RC_FILES", "/dev/null", 1);
    unsetenv("GTK_MODULES");
}

Window TestScreen::AwaitWindow(pid_t program, const std::string& title) {
    // xdotool fails when a window goes while it searches.
    const std::string search = "until xdotool search --onlyvisible --all --pid " +
                               std::to_string(program) + " --name '^" + title +
                               "$' 2>/dev/null; do sleep 0.02; done";
    std::string found;
    RunProgram({"sh", "-c", search}, &found);
    return std::stoul(found);
}

void TestScreen::Close(Window window) {
    Display* display = XOpenDisplay(nullptr);
    const auto atom = [display](const char* name) { return XInternAtom(display, name, False); };
    XEvent event{};
    event.xclient = {ClientMessage, 0, False, nullptr, window, atom("WM_PROTOCOLS"), 32, {}};
    event.xclient.data.l[0] = static_cast<long>(atom("WM_DELETE_WINDOW"));
    XSendEvent(display, window, False, NoEventMask, &event);
    XCloseDisplay(display);
}

void TestScreen::Press(Window window, const std::string& keys) {
    RunProgram({"sh", "-c", "xdotool windowfocus " + std::to_string(window) + " key " + keys});
}
