#include "bugreport/report.h"

#include <cctype>

#include "lib/stream.h"
#include "lib/version_records.h"

namespace {

constexpr char url_hex_digits[] = "0123456789abcdef";
constexpr size_t kMaxEncodedName = 1023;

constexpr size_t kFirstPart = 1024;
constexpr size_t kLastPart = 7168;
constexpr size_t kMostTaken = kFirstPart + kLastPart;

constexpr const char* kReportFiles[] = {kVersionRecordFile, "errors.log", "openglerr.log",
                                        "openglinfo.log",   "config.ini", "tarn.cfg"};

std::string EncodeName(const char* name) {
    std::string encoded;
    for (; *name != '\0'; ++name) {
        const auto byte = static_cast<unsigned char>(*name);
        const bool plain = isalnum(byte) != 0;
        if (encoded.size() + (plain ? 1 : 3) > kMaxEncodedName) break;
        if (plain) {
            encoded += *name;
        } else {
            encoded += {'%', url_hex_digits[byte >> 4], url_hex_digits[byte & 15]};
        }
    }
    return encoded;
}

// Returns fewer than `length` bytes only at the end of the file.
std::string ReadUpTo(FILE* file, size_t length) {
    std::string data(length, '\0');
    data.resize(fread(data.data(), 1, length, file));
    return data;
}

// Returns at most kMostTaken bytes, even if the file grows meanwhile.
std::string ReadForReport(FILE* file) {
    const int64_t size = StreamSize(file);
    const bool large = size < 0 || size > static_cast<int64_t>(kMostTaken);
    const size_t amount = large ? kMostTaken : static_cast<size_t>(size);

    std::string data = ReadUpTo(file, std::min(amount, kFirstPart));
    if (amount == kMostTaken) fseeko(file, -static_cast<off_t>(kLastPart), SEEK_END);
    return data + ReadUpTo(file, amount - std::min(amount, kFirstPart));
}

}  // namespace

std::string ReportQuery(const char* userName, const char* crashAddress) {
    return "username=" + EncodeName(userName) + "&platform=Linux&IP=" + crashAddress;
}

std::string ReportBody(const char* description) {
    std::string body = description;
    for (const char* path : kReportFiles) body = AppendReportFile(std::move(body), path);
    return body;
}

std::string AppendReportFile(std::string text, const char* path) {
    text += std::string("\n************** ") + path + " **************\n";
    const Stream file = OpenForReading(path);
    if (!file) return text + "(no file)";
    return text + ReadForReport(file.get()).c_str();
}
