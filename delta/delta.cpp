#include "delta/delta.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "delta/delta_plan.h"
#include "delta/gap_ranges.h"
#include "delta/long_matches.h"
#include "delta/match_finder.h"
#include "delta/patch_writer.h"
#include "lib/patch_buffer.h"
#include "lib/patch_format.h"
#include "lib/stream.h"
#include "lib/whole_file.h"

namespace {

bool PlanPatch(const MappedFile& from, const std::string& new_path, uint64_t size_limit,
               PatchWriter* writer, std::string* reason) {
    std::vector<LongMatch> matches;
    {
        MappedFile to;
        if (!to.Open(new_path, reason)) return false;
        matches = LongMatches(from, &to);
    }
    MappedFile to;
    if (!to.Open(new_path, reason)) return false;
    std::vector<Range> ranges = GapRanges(matches, from.Data(), from.Size(), to.Data(), to.Size());
    if (ranges.empty()) {
        matches.clear();
        ranges.push_back({0, from.Size()});
    }
    MatchFinder finder;
    if (!finder.Index(from.Data(), from.Size(), ranges, reason)) return false;
    DeltaPlan plan(matches, &finder, from.Data(), to.Data(), to.Size(), writer);
    while (plan.Step() && writer->Size() <= size_limit) to.Release(plan.Position());
    return true;
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
    if (std::max(from.Size(), to.Size()) > kMaxPatchedSize) {
        *reason = (from.Size() > kMaxPatchedSize ? old_path : new_path) + ": too large for a patch";
        return DeltaResult::NONE;
    }
    PatchWriter writer;
    if (!PlanPatch(from, new_path, size_limit, &writer, reason)) return DeltaResult::FAILED;
    writer.LimitCommands(kMaxCommands);
    if (writer.Size() > size_limit) {
        *reason = "the patch would be too large";
        return DeltaResult::NONE;
    }
    if (writer.Write(patch, to.Data(), reason)) return DeltaResult::MADE;
    unlink(patch.c_str());
    return DeltaResult::FAILED;
}

uint64_t PatchMemory(uint64_t old_size, uint64_t new_size) {
    // At most: the old file itself; the sorted suffixes of its first half, which take two bytes
    // each with their keys; and those of the second half while they are sorted, of four. Then, of
    // the new file, what is planned, a command for every nine bytes, and its pages while the patch
    // is written.
    constexpr uint64_t kRest = 16 << 20;
    return old_size * 17 / 4 + new_size + kRest;
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
