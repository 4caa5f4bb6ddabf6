// A display of the test's own.
#ifndef HALCYRIX_TESTS_SUPPORT_X_SERVER_H
#define HALCYRIX_TESTS_SUPPORT_X_SERVER_H

#include <X11/Xlib.h>
#include <sys/types.h>

#include <string>

// What a test program returns to be counted as skipped.
constexpr int kSkipped = 77;

// Runs an X server in memory and makes it the process's display, with GTK's settings as it brings
// them. Ends the server with itself, or with the process.
class XServer {
public:
    XServer();
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // False, with a line on standard output, where the server is not installed.
    bool Running() const { return m_running; }

private:
    pid_t m_pid = -1;
    bool m_running = false;
};

// Sees the windows of other programs on the display.
class WindowWatch {
public:
    WindowWatch();
    ~WindowWatch();

    // Waits until the program shows a window with this title; 0 after a minute without it.
    Window WaitFor(pid_t program, const std::string& title);
    // Closes a window as its frame would.
    void Close(Window window);

private:
    Window Find(pid_t program, const std::string& title);
    pid_t Owner(Window window);

    Display* m_display;
};

#endif
