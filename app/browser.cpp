#include "app/browser.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "app/home.h"
#include "app/message_box.h"
#include "app/programs.h"
#include "halcyrix_config.h"

namespace {

constexpr size_t kMaxCommand = 2047;
constexpr int kMaxAddresses = 4;
constexpr int kNoBrowser = 99;  // exit status of the child

[[noreturn]] void run_browser(const std::string& address) {
    const char* browser = getenv("BROWSER");
    if (browser != nullptr) {
        const std::string command = expand_browser_command(browser, address);
        become("/bin/sh", {"/bin/sh", "-c", command.c_str()});
    }
    _exit(kNoBrowser);
}

}  // namespace

volatile sig_atomic_t browser_failed = 0;

std::string expand_browser_command(const std::string& browser, const std::string& address) {
    std::string command;
    int addresses = 0;
    for (size_t at = 0; at < browser.size(); ++at) {
        if (browser.compare(at, 2, "%s") == 0 && addresses < kMaxAddresses) {
            command += address;
            ++addresses;
            ++at;
        } else if (browser.compare(at, 2, "%%") == 0) {
            command += '%';
            ++at;
        } else {
            command += browser[at];
        }
    }
    return command.substr(0, kMaxCommand);
}

void open_manual() {
    const std::string address = manual_address();
    if (fork() == 0) run_browser(address);
}

void sighandler(int signo) {
    if (signo != SIGCHLD) return;
    const int before = errno;
    int status = 0;
    // Several signals may arrive as one, and a child that stops sends one, too: reap all that have
    // ended, without waiting.
    while (waitpid(-1, &status, WNOHANG) > 0) {
        if (WIFEXITED(status) && WEXITSTATUS(status) == kNoBrowser) browser_failed = 1;
    }
    errno = before;
}

gboolean gtkidlehandler(gpointer) {
    if (browser_failed == 0) return TRUE;
    const std::string text =
        "$BROWSER is not set correctly -- \ncouldn't open a browser.  Please open\n\n" +
        manual_address() +
        "\n\nin your browser to view the manual.\n\nPlease see " HALCYRIX_BROWSER_HELP_URL
        "\nfor information on how to fix this in the future.";
    message_box(text.c_str(), "Error opening URL");
    browser_failed = 0;
    return TRUE;
}
