// An X server for the test, its windows, and a player's keys.
#pragma once

#include <string>

#include "tests/support/program.h"

using Window = unsigned long;  // as in Xlib, which would redefine words of gtest

// An X server in memory, 1024 by 768 pixels, without a window manager. It becomes the process's
// DISPLAY and ends with the process.
class TestScreen {
public:
    TestScreen();

    // Waits until the program shows a window with this title.
    Window AwaitWindow(pid_t program, const std::string& title);
    // Closes a window as its frame would.
    void Close(Window window);
    // Gives a window the keyboard and presses keys one after the other: "Tab space ctrl+c".
    void Press(Window window, const std::string& keys);

private:
    Program m_server;
};
