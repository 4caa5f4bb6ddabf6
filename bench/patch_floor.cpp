// The least that a patch takes, whoever makes it:
//
//   bench-patch-floor OLD NEW
//
// Prints two sizes in bytes: of the smallest patch of one pass, and of the smallest that could also
// copy from what it has made of the new file already. The format has no such copies; further passes
// can stand in for them only by laying the stretches out, which takes commands of its own.

#include <divsufsort.h>

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "lib/patch_format.h"
#include "lib/whole_file.h"

namespace {

using Positions = std::vector<int32_t>;

// For each suffix the closest one before it in the order given that stands in the old file or, if
// `earlier`, anywhere before it; -1 when there is none.
template <typename Iterator>
Positions Neighbours(Iterator begin, Iterator end, int32_t oldSize, bool earlier) {
    Positions neighbours(static_cast<size_t>(end - begin), -1);
    Positions candidates;
    for (Iterator at = begin; at != end; ++at) {
        const int32_t suffix = *at;
        while (earlier && !candidates.empty() && candidates.back() > suffix) candidates.pop_back();
        if (!candidates.empty()) neighbours[static_cast<size_t>(suffix)] = candidates.back();
        if (!earlier && suffix >= oldSize) continue;
        if (!earlier) candidates.clear();
        candidates.push_back(suffix);
    }
    return neighbours;
}

// The length of the longest match at each byte of the new file, which follows the old one.
Positions LongestMatches(const std::string& text, const Positions& suffixes, size_t oldSize,
                         bool earlier) {
    const auto boundary = static_cast<int32_t>(oldSize);
    Positions longest(text.size() - oldSize);
    for (const bool reversed : {false, true}) {
        const Positions neighbours =
            reversed ? Neighbours(suffixes.rbegin(), suffixes.rend(), boundary, earlier)
                     : Neighbours(suffixes.begin(), suffixes.end(), boundary, earlier);
        size_t common = 0;  // at least one less than at the byte before
        for (size_t i = oldSize; i < text.size(); ++i) {
            const auto other = static_cast<size_t>(neighbours[i]);
            const size_t end = other < oldSize && !earlier ? oldSize : text.size();
            while (neighbours[i] >= 0 && i + common < text.size() && other + common < end &&
                   text[i + common] == text[other + common]) {
                ++common;
            }
            if (neighbours[i] < 0) common = 0;
            int32_t& most = longest[i - oldSize];
            most = std::max(most, static_cast<int32_t>(common));
            if (common > 0) --common;
        }
    }
    return longest;
}

// What the commands for the first bytes take, when the last one is a literal or a copy. More bytes
// never take less, so the best copy up to a byte is the one that begins earliest.
uint64_t LeastSize(const Positions& longest) {
    constexpr uint64_t kImpossible = UINT64_MAX / 2;
    std::vector<uint64_t> least = {0};
    uint64_t literal = kImpossible;
    uint64_t copy = 0;
    size_t from = 0;
    for (size_t end = 1; end <= longest.size(); ++end) {
        literal = std::min(literal, copy + kPatchLiteralHeaderSize) + 1;
        while (from < end && from + static_cast<size_t>(longest[from]) < end) ++from;
        copy = from < end ? least[from] + kPatchCopySize : kImpossible;
        least.push_back(std::min(literal, copy));
    }
    return least.back() + kPatchEndOfPassSize;
}

}  // namespace

int main(int argc, char** argv) {
    MappedFile files[2];
    std::string text;
    std::string error;
    if (argc != 3) return 2;
    for (int i = 0; i < 2; ++i) {
        if (!files[i].Open(argv[i + 1], &error)) {
            fprintf(stderr, "%s\n", error.c_str());
            return 1;
        }
        text.append(reinterpret_cast<const char*>(files[i].Data()), files[i].Size());
    }
    Positions suffixes(text.size());
    if (text.size() > INT32_MAX ||
        divsufsort(reinterpret_cast<const uint8_t*>(text.data()), suffixes.data(),
                   static_cast<int32_t>(text.size())) != 0) {
        fprintf(stderr, "the files are too large\n");
        return 1;
    }
    for (const bool earlier : {false, true}) {
        printf("%llu\n", static_cast<unsigned long long>(
                             LeastSize(LongestMatches(text, suffixes, files[0].Size(), earlier))));
    }
    return 0;
}
