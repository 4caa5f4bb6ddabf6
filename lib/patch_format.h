// The patch format: one-byte commands with big-endian 32-bit operands, from the first byte of the
// file to its last.
//
//   C offset length      append a stretch of the current contents to the output
//   L length data...     append the data to the output
//   R                    end of pass: an output that is not empty becomes the current contents
//
// The current contents are at first the old file.
#pragma once

#include <cstdint>

constexpr uint8_t kPatchCopy = 'C';
constexpr uint8_t kPatchLiteral = 'L';
constexpr uint8_t kPatchEndOfPass = 'R';

constexpr uint64_t kPatchCopySize = 1 + 4 + 4;
constexpr uint64_t kPatchLiteralHeaderSize = 1 + 4;
constexpr uint64_t kPatchEndOfPassSize = 1;

// Old and new contents fit a 32-bit length.
constexpr uint64_t kMaxPatchedSize = 0xFFFFFFFF;

// Spans allowed beyond one per command. Passes that copy their own output double the spans each
// time; without a bound a few bytes could ask for any amount of memory and time. A span takes 80
// bytes, so a patch of n commands takes at most 80 * (n + kMaxPatchSpans) bytes.
constexpr uint64_t kMaxPatchSpans = 2 * 1024 * 1024;
