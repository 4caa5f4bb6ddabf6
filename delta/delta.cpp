#include "delta/delta.h"

#include <unistd.h>

#include <cstring>

#include "delta/delta_plan.h"
#include "delta/match_finder.h"
#include "delta/patch_writer.h"
#include "lib/patch_buffer.h"
#include "lib/patch_format.h"
#include "lib/stream.h"
#include "lib/whole_file.h"

namespace {

DeltaResult WritePatch(const MappedFile& from, MappedFile* to, const std::string& patch,
                       uint64_t size_limit, std::string* reason) {
    PatchWriter writer;
    if (!writer.Open(patch, reason)) return DeltaResult::FAILED;
    MatchFinder finder;
    if (!finder.Index(from.Data(), from.Size(), reason)) return DeltaResult::FAILED;

    DeltaPlan plan(&finder, from.Data(), to->Data(), to->Size(), &writer);
    while (plan.Step()) {
        to->Release(plan.Position());
        if (writer.Size() > size_limit) break;
        if (writer.Commands() > kMaxPatchSpans) {
            *reason = "the files differ in more places than the updater takes";
            return DeltaResult::NONE;
        }
    }
    if (!writer.Finish(reason)) return DeltaResult::FAILED;
    if (writer.Size() <= size_limit) return DeltaResult::MADE;
    *reason = "the patch would be too large";
    return DeltaResult::NONE;
}

}  // namespace

DeltaResult MakePatch(const std::string& old_path, const std::string& new_path,
                      const std::string& patch, uint64_t size_limit, std::string* reason) {
    MappedFile from;
    MappedFile to;
    if (!from.Open(old_path, reason) || !to.Open(new_path, reason)) return DeltaResult::FAILED;
    if (to.Size() == 0) {
        *reason = new_path + ": no patch makes an empty file";
        return DeltaResult::NONE;
    }
    if (from.Size() > MatchFinder::kMaxSize || to.Size() > kMaxPatchedSize) {
        *reason =
            (from.Size() > MatchFinder::kMaxSize ? old_path : new_path) + ": too large for a patch";
        return DeltaResult::NONE;
    }
    const DeltaResult result = WritePatch(from, &to, patch, size_limit, reason);
    if (result != DeltaResult::MADE) unlink(patch.c_str());
    return result;
}

bool VerifyPatch(const std::string& old_path, const std::string& new_path, const std::string& patch,
                 std::string* error) {
    MappedFile expected;
    if (!expected.Open(new_path, error)) return false;
    PatchBuffer patched;
    if (!patched.Load(patch, old_path)) {
        *error = patch + ": does not apply to " + old_path;
        return false;
    }
    *error = patch + ": makes something else than " + new_path;
    if (patched.Size() != expected.Size()) return false;
    uint8_t piece[65536];
    for (const auto& [start, span] : patched.spans) {
        MoveTo(span.file, span.offset);
        for (uint64_t done = 0; done < span.length;) {
            const auto wanted =
                static_cast<size_t>(std::min<uint64_t>(span.length - done, sizeof piece));
            if (fread(piece, 1, wanted, span.file) != wanted) return false;
            if (memcmp(piece, expected.Data() + start + done, wanted) != 0) return false;
            done += wanted;
        }
    }
    error->clear();
    return true;
}
