#include "delta/delta.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <utility>
#include <vector>

#include "delta/bytes.h"
#include "delta/delta_plan.h"
#include "delta/gap_ranges.h"
#include "delta/long_matches.h"
#include "delta/match_finder.h"
#include "delta/patch_writer.h"
#include "delta/threads.h"
#include "lib/patch_buffer.h"
#include "lib/patch_format.h"
#include "lib/stream.h"
#include "lib/whole_file.h"

namespace {

// Threads plan stretches of this size side by side. A fixed size gives the same patch with any
// number of threads.
constexpr size_t kStretch = size_t{1} << 20;

bool PlanPatch(const MappedFile& from, MappedFile* to, const PatchOptions& options,
               PatchWriter* writer, std::string* reason) {
    std::vector<LongMatch> matches = LongMatches(from, to);
    std::vector<Range> ranges =
        GapRanges(matches, from.Data(), from.Size(), to->Data(), to->Size());
    if (ranges.empty()) {
        matches.clear();
        ranges.push_back({0, from.Size()});
    }
    MatchFinder finder;
    if (!finder.Index(from.Data(), from.Size(), ranges, options.threads, reason)) return false;
    const DeltaSources sources{from.Data(), to->Data(), matches, finder};
    std::vector<PatchWriter> plans((to->Size() - 1) / kStretch + 1);
    const auto endOf = [to](size_t i) { return std::min((i + 1) * kStretch, to->Size()); };
    std::atomic<size_t> next{0};
    RunInThreads(std::min(options.threads, plans.size()), [&] {
        for (size_t i; (i = next++) < plans.size();) {
            PlanStretch(sources, i * kStretch, endOf(i), &plans[i]);
            if (options.observer != nullptr) options.observer->Done(endOf(i) - i * kStretch);
            to->Release(i * kStretch, endOf(i));
        }
    });
    // A copy goes on over the seam, in place of what was planned there.
    size_t covered = 0;
    for (size_t i = 0; i < plans.size(); ++i) {
        writer->Append(std::exchange(plans[i], {}), covered - i * kStretch);
        covered = std::max(covered, endOf(i));
        const auto copied = writer->CopyEnd();
        if (!copied) continue;
        const size_t more = CommonLength(sources.old + *copied, sources.contents + covered, 0,
                                         std::min(from.Size() - *copied, to->Size() - covered));
        if (more > 0) writer->Copy(*copied, static_cast<uint32_t>(more));
        covered += more;
    }
    return true;
}

}  // namespace

DeltaResult MakePatch(const std::string& old_path, const std::string& new_path,
                      const std::string& patch, const PatchOptions& options, std::string* reason) {
    MappedFile from;
    MappedFile to;
    if (!from.Open(old_path, reason) || !to.Open(new_path, reason)) return DeltaResult::FAILED;
    const auto none = [reason](const std::string& why) {
        *reason = why;
        return DeltaResult::NONE;
    };
    if (to.Size() == 0) return none(new_path + ": no patch makes an empty file");
    if (from.Size() > kMaxPatchedSize) return none(old_path + ": too large for a patch");
    if (to.Size() > kMaxPatchedSize) return none(new_path + ": too large for a patch");
    PatchWriter writer;
    if (!PlanPatch(from, &to, options, &writer, reason)) return DeltaResult::FAILED;
    writer.LimitCommands(kMaxCommands);
    if (writer.Size() > options.sizeLimit) return none("the patch would be too large");
    if (writer.Write(patch, to.Data(), reason)) return DeltaResult::MADE;
    unlink(patch.c_str());
    return DeltaResult::FAILED;
}

uint64_t PatchMemory(uint64_t old_size, uint64_t new_size) {
    constexpr uint64_t kRest = 16 << 20;
    // The old file, its filter, and its suffixes while they are sorted, of four bytes each.
    const uint64_t sorting = old_size * 23 / 4;
    // The old file and its index. Of the new file, what is mapped, eight bytes for a command of
    // seven or more, and what threads need that plan a stretch each.
    const uint64_t planning = old_size * 15 / 4 + new_size * 5 / 2;
    // The new file, and 80 bytes for each command.
    const uint64_t verifying = new_size + std::min<uint64_t>(new_size / 7, kMaxCommands) * 80;
    return std::max({sorting, planning, verifying}) + kRest;
}

bool VerifyPatch(const std::string& old_path, const std::string& new_path, const std::string& patch,
                 std::string* error) {
    MappedFile expected;
    if (!expected.Open(new_path, error)) return false;
    PatchBuffer patched;
    if (!patched.Load(patch, old_path))
        return Fail(error, patch + ": does not apply to " + old_path);
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
