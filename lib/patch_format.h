// The patch format: one-byte commands with big-endian 32-bit operands, from the first byte of the
// file to its last.
//
//   C offset length      append a stretch of the current contents to the output
//   L length data...     append the data to the output
//   R                    end of pass: an output that is not empty becomes the current contents
//
// The current contents are at first the old file.
#ifndef HALCYRIX_LIB_PATCH_FORMAT_H
#define HALCYRIX_LIB_PATCH_FORMAT_H

#include <cstdint>

constexpr uint8_t kPatchCopy = 'C';
constexpr uint8_t kPatchLiteral = 'L';
constexpr uint8_t kPatchEndOfPass = 'R';

constexpr uint64_t kPatchCopySize = 1 + 4 + 4;
constexpr uint64_t kPatchLiteralHeaderSize = 1 + 4;
constexpr uint64_t kPatchEndOfPassSize = 1;

// Old and new contents must be no larger than a 32-bit length can tell.
constexpr uint64_t kMaxPatchedSize = 0xFFFFFFFF;

// The spans that the commands of one patch may place beyond one each. Passes that copy their own
// output double the spans each time, so a few bytes of patch could otherwise ask for any amount of
// memory and time; this bound keeps it below some 400 MB. A patch of one pass never comes near: its
// commands place one span each.
constexpr uint64_t kMaxPatchSpans = 2 * 1024 * 1024;

#endif
