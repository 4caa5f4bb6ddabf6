// Finds programs that were cut off.
#ifndef HALCYRIX_APP_ELF_CHECK_H
#define HALCYRIX_APP_ELF_CHECK_H

#include <string>

// Whether the file is an ELF file with a header, a header table or a segment that reaches beyond
// its end: the system would start it all the same, and it would crash. False for any other file,
// also for one that cannot be read.
bool IsTruncatedElf(const std::string& path);

#endif
