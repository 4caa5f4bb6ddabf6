// A patch, run by the interpreter and by its model: both must make the same, or refuse.
//
// Input: the length of the old file, then the patch.

#include <cstdlib>

#include "fuzz/patch_model.h"
#include "lib/patch_file.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

namespace {

constexpr uint64_t kMostCompared = 1 << 20;  // bytes

// Whether the contents stay small, so that the model can run: no copy more than doubles them. How
// the interpreter stops others is tested with patches made for that.
bool StaysSmall(const std::string& patch, size_t old) {
    uint64_t most = old + patch.size();
    for (const char byte : patch) {
        if (byte == 'C') most *= 2;
        if (most > kMostCompared) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ScratchDir scratch;
    if (size == 0) return 0;
    const std::string old = SeededBytes(data[0], 1);
    const std::string patch(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (!StaysSmall(patch, old.size())) return 0;
    const RecordingLog log;
    RecordingProgress progress;
    WriteFile("file", old);
    WriteFile("patch", patch);
    const auto expected = Model(old, patch);
    const bool applied = PatchFile("file", "patch", &progress);
    if (applied != (expected && !expected->empty())) abort();
    if (ReadFile("file") != (applied ? *expected : old)) abort();
    return 0;
}
