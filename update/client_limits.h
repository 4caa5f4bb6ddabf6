// Limits of one conversation, far above any release. A server that never stops sending must not
// fill the memory or block the window forever.
#pragma once

#include <cstddef>

constexpr size_t kMaxVersionLength = 127;  // the rest is cut off
constexpr size_t kMaxMotdLength = 1024 * 1024;
constexpr size_t kMaxListedFiles = 1'000'000;
constexpr size_t kMaxNameBytes = 64 * 1024 * 1024;  // of listed files and of patches together
