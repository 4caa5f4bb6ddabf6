// Applying a patch to an installed file.
#pragma once

#include <string>

#include "lib/progress_indicator.h"

// Writes the result of the patch to `target`.tmp, deletes the target and renames. `progress` must
// not be null. False when the target does not hold the new contents; this is logged unless the old
// target cannot be deleted.
[[nodiscard]] bool PatchFile(const std::string& target, const std::string& patch_path,
                             ProgressIndicator* progress);
