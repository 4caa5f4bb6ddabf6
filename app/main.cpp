// Chooses what this start of the program is for.
#include <csignal>
#include <cstring>

#include "app/browser.h"
#include "app/bugreport_main.h"
#include "app/updater_copy.h"
#include "app/updater_main.h"

int main(int argc, char** argv) {
    signal(SIGCHLD, sighandler);
    signal(SIGPIPE, SIG_IGN);

    const char* mode = argc > 1 ? argv[1] : "";
    if (strcmp(mode, "-bugreport") == 0) return bugreport_main(argc, argv);
    if (!IsUpdaterCopyName(argv[0])) HandOff();
    const int selfUpdate = strcmp(mode, "-phase2") != 0;
    return updater_main(argc, argv, selfUpdate);
}
