// The update client's records of files and downloads.
#pragma once

#include <cstdint>
#include <string>

#include "lib/local_file_check.h"

// One file of the server's list.
struct FileRecord {
    std::string name;            // the server's name for the file
    uint32_t checksum = 0;       // of the latest version
    uint32_t tailChecksum = 0;   // of the last 1024 bytes of a partial local copy
    uint64_t length = 0;         // of the latest version
    uint64_t currentLength = 0;  // of a partial local copy
    bool resume = false;         // ask for the rest of a partial local copy
    bool good = false;           // the look-ahead found length and checksum right
    FileStamp stamp{};           // of the local file then
};

// One download that the server has announced.
struct DownloadEntry {
    std::string source;  // of a patch, the local path where it is stored; else the server's name
    std::string target;  // the local path of the file that is brought up to date
    bool isPatch = false;
    bool received = false;  // all its data, in this conversation

    // Where the download is written.
    const std::string& OutputPath() const { return isPatch ? source : target; }
};
