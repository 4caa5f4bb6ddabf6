#include "app/updater_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string_view>

#include "app/elf_check.h"
#include "app/home.h"
#include "app/signals.h"

bool IsUpdaterCopyName(const char* startName) {
    return startName != nullptr && std::string_view(startName).ends_with(kUpdaterCopyName);
}

void StartUpdaterCopy(const std::string& path, const char* argument) {
    chmod(path.c_str(), kProgramMode);
    // A cut-off copy would crash at every start, and no session could ever repair it.
    if (IsTruncatedElf(path)) return;
    const DefaultSignals signals;
    execl(path.c_str(), kUpdaterCopyName, argument, nullptr);
}

void HandOff() {
    const std::string path = GameHome() + "/" + kUpdaterCopyName;
    if (access(path.c_str(), F_OK) == 0) StartUpdaterCopy(path, nullptr);
}
