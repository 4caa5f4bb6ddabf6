// The application of a patch to an installed file.
#ifndef HALCYRIX_LIB_PATCH_FILE_H
#define HALCYRIX_LIB_PATCH_FILE_H

#include <string>

#include "lib/progress_indicator.h"

// Runs the patch and puts the result in the target's place, by way of `target`.tmp. `progress` must
// not be null. False when the target does not hold the new contents, which is logged except when
// the old target cannot be deleted.
[[nodiscard]] bool PatchFile(const std::string& target, const std::string& patch_path,
                             ProgressIndicator* progress);

#endif
