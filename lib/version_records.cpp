#include "lib/version_records.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "lib/checksum.h"
#include "lib/stream.h"
#include "log/gamelog.h"

namespace {

// Lines are read in pieces of this size, with the terminator. The rest of a longer line counts as
// the next line.
constexpr int kLineSize = 128;

constexpr uint32_t kDefaultKey = 0;

bool IsKeyless(const char* line) { return line[0] == 'v'; }

std::string WithoutLineFeed(const char* line) {
    std::string text = line;
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

// Copies all records but the one of `key`.
void CopyOtherRecords(FILE* from, FILE* to, uint32_t key) {
    char line[kLineSize];
    while (fgets(line, sizeof line, from) != nullptr) {
        if (IsKeyless(line)) {
            fprintf(to, "%08x %s\n", kDefaultKey, WithoutLineFeed(line).c_str());
            continue;
        }
        unsigned long lineKey;
        if (sscanf(line, "%8lx", &lineKey) != 1) return;
        if (static_cast<uint32_t>(lineKey) == key || strlen(line) <= 2) continue;
        fputs(line, to);
    }
}

// Returns whether the new file is complete and on the disk. The old file is deleted next, and a
// power cut after that must not lose the record.
bool WriteNewFile(uint32_t key, const std::string& version) {
    const Stream from = OpenForReading(kVersionRecordFile);
    // Without the old file the records of other components would be lost.
    if (!from && errno != ENOENT) return false;
    Stream to = OpenForWriting(kVersionRecordTemporary);
    if (!to) return false;
    if (from) CopyOtherRecords(from.get(), to.get(), key);
    if (from && ferror(from.get())) return false;
    fprintf(to.get(), "%08lx %s\n", static_cast<unsigned long>(key), version.c_str());
    return fflush(to.get()) == 0 && fsync(fileno(to.get())) == 0 && CloseWritten(std::move(to));
}

}  // namespace

uint32_t ComponentKey(const std::list<std::string>& components) {
    uint32_t key = kComponentKeyStart;
    for (const std::string& name : components) {
        key = Checksum(name.data(), static_cast<uint32_t>(name.size()), key);
    }
    return key;
}

std::string ReadVersionRecord(uint32_t key) {
    std::string found;
    const Stream file = OpenForReading(kVersionRecordFile);
    if (!file) return found;

    char line[kLineSize];
    while (fgets(line, sizeof line, file.get()) != nullptr) {
        if (IsKeyless(line)) return WithoutLineFeed(line);
        unsigned long lineKey;
        char version[kLineSize];
        if (sscanf(line, "%8lx %127s", &lineKey, version) != 2) break;
        const auto recordKey = static_cast<uint32_t>(lineKey);
        if (recordKey == kDefaultKey || recordKey == key) found = version;
        if (recordKey == key) break;
    }
    return found;
}

void WriteVersionRecord(uint32_t key, const std::string& version) {
    if (!WriteNewFile(key, version)) {
        gamelog->Printf("Can't write %s: %s; the version is not recorded\n",
                        kVersionRecordTemporary, strerror(errno));
        unlink(kVersionRecordTemporary);
        return;
    }
    unlink(kVersionRecordFile);
    rename(kVersionRecordTemporary, kVersionRecordFile);
}
