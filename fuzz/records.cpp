// The version records: any files may be there. After a write the new record is the last one, and a
// second write changes no other.
//
// Input: the length of the file under construction (none for 0), that file, and the record file
// (none when nothing is left).

#include <cstdlib>

#include "lib/version_records.h"
#include "tests/support/recorders.h"
#include "tests/support/scratch_dir.h"

// Whether the lines are text, whole, and short enough to be read in one piece. What does not fit is
// read, and copied, as a line of its own.
static bool IsOfRecordForm(const std::string& text) {
    size_t length = 0;
    for (const char byte : text) {
        length = byte == '\n' ? 0 : length + 1;
        if (length > 117 || byte == '\0') return false;
    }
    return length == 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const ScratchDir scratch;
    if (size == 0) return 0;
    const RecordingLog log;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t split = std::min<size_t>(data[0], text.size());
    std::filesystem::remove(kVersionRecordFile);
    std::filesystem::remove(kVersionRecordTemporary);
    if (split > 0) WriteFile(kVersionRecordTemporary, text.substr(0, split));
    if (split < text.size()) WriteFile(kVersionRecordFile, text.substr(split));

    if (ReadVersionRecord(0x9fcdf44f).size() > 127) abort();
    WriteVersionRecord(0x9fcdf44f, "1.1");
    const std::string written = ReadFile(kVersionRecordFile);
    if (!written.ends_with("9fcdf44f 1.1\n")) abort();
    if (std::filesystem::exists(kVersionRecordTemporary)) abort();
    const std::string once = ReadVersionRecord(0x07871091);
    WriteVersionRecord(0x9fcdf44f, "1.2");
    if (IsOfRecordForm(text.substr(split)) && ReadVersionRecord(0x07871091) != once) abort();
    return 0;
}
