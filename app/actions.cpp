#include "app/actions.h"

#include <sys/stat.h>

#include <cstdlib>
#include <string>

#include "app/browser.h"
#include "app/message_box.h"
#include "app/programs.h"
#include "app/window_events.h"

namespace {

constexpr char kLibraryPath[] = "LD_LIBRARY_PATH";

// The game brings libraries of its own, which go before the system's.
void prepend_game_libraries() {
    const char* before = getenv(kLibraryPath);
    std::string path = "./drivers:.";
    if (before != nullptr) path += std::string(":") + before;
    setenv(kLibraryPath, path.c_str(), 1);
}

}  // namespace

void on_start_clicked(GtkButton*, gpointer) {
    chmod("halcyrix", kProgramMode);
    prepend_game_libraries();
    become("./halcyrix", {"halcyrix"});
    message_box("Failed to start halcyrix!\n\nPlease check ~/.halcyrix/halcyrix", "Fatal error");
}

void on_help_clicked(GtkButton*, gpointer) {
    open_manual();
}

void on_cancel_clicked(GtkButton*, gpointer) {
    request_quit();
}

gboolean on_cancel_event(GtkWidget*, GdkEvent*, gpointer) {
    request_quit();
    return FALSE;
}
