#include "lib/patch_file.h"

#include <unistd.h>

#include <cstdio>

#include "lib/patch_buffer.h"
#include "log/gamelog.h"

namespace {

bool WritePatched(const std::string& target, const std::string& patch_path,
                  const std::string& temporary, ProgressIndicator* progress) {
    PatchBuffer patched;
    if (!patched.Load(patch_path, target)) {
        gamelog->Printf("Failed to load %s patch %s\n", target.c_str(), patch_path.c_str());
        return false;
    }
    if (!patched.WriteFile(temporary, progress)) {
        gamelog->Printf("Failed to write patched %s: %s\n", target.c_str(), temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace

bool PatchFile(const std::string& target, const std::string& patch_path,
               ProgressIndicator* progress) {
    progress->SetStatus(("Patching " + target + "...").c_str());
    const std::string temporary = target + ".tmp";
    if (!WritePatched(target, patch_path, temporary, progress)) return false;
    if (unlink(target.c_str()) != 0) return false;
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        gamelog->Printf("Unable to move %s to %s?!\n", temporary.c_str(), target.c_str());
        return false;
    }
    return true;
}
