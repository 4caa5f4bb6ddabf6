// The messages of the update protocol, for both ends. Each is the payload of one packet.
//
// Requests begin with a four-letter tag and end with their last field. Replies may have further
// bytes. Integers are little-endian; texts end with a NUL. Encode() and Decode() in
// update/fields.h do no I/O; a malformed payload decodes to std::nullopt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "net/frame.h"
#include "update/fields.h"

constexpr int kUpdatePort = 21024;

// Requests.
constexpr std::string_view kGreeting = "PVERA";
constexpr std::string_view kTagComponent = "ARCH";
constexpr std::string_view kTagMotd = "MOTD";
constexpr std::string_view kTagVersion = "GETV";
constexpr std::string_view kTagChecksum = "CSUM";
constexpr std::string_view kTagFull = "FULL";
constexpr std::string_view kTagPatch = "PATC";
constexpr std::string_view kTagResume = "RSUM";
constexpr std::string_view kTagQueue = "REQD";
constexpr std::string_view kTagDownload = "DOWN";

// The size of every data packet of a file but the last, which is shorter and may be empty.
constexpr int kDataPacketSize = kMaxPayload;

// The index of the header that ends the download stream.
constexpr uint32_t kEndOfDownloads = 0xFFFFFFFF;

// "ARCH" with a component, "FULL" with a file name: tag, text, NUL.
std::string EncodeNamed(std::string_view tag, std::string_view name);

// "CSUM" and "PATC": tag, installed version, NUL, file name, NUL.
std::string EncodeVersioned(std::string_view tag, std::string_view version, std::string_view name);

struct ResumeRequest {
    uint32_t offset;        // the length of the partial local file
    uint32_t tailChecksum;  // of its last 1024 bytes

    static constexpr std::string_view kTag = kTagResume;
    auto Fields() { return std::tie(offset, tailChecksum); }
};

// Replies.

struct FileListEntry {
    std::string name;
    uint32_t checksum;
    uint32_t length;

    auto Fields() { return std::tie(name, checksum, length); }
};

struct ChecksumReply {
    uint32_t checksum;  // in the installed version; kNoChecksum when there is none

    auto Fields() { return std::tie(checksum); }
};

struct FullReply {
    uint32_t index;
    uint32_t checksum;
    uint32_t length;

    auto Fields() { return std::tie(index, checksum, length); }
};

struct PatchReply {
    std::string downloadName;
    uint32_t index;
    uint32_t length;  // of what will be sent
    uint32_t checksum;
    bool isPatch;  // else the whole file is sent

    auto Fields() { return std::tie(downloadName, index, length, checksum, isPatch); }
};

struct ResumeReply {
    bool accepted;

    auto Fields() { return std::tie(accepted); }
};

struct QueueStatus {
    bool ready;
    uint16_t position;  // 0 is the first
    uint16_t queueLength;
    uint16_t rate;  // places served per 100 seconds

    bool FirstIsAll() const { return ready; }
    auto Fields() { return std::tie(ready, position, queueLength, rate); }
};

struct DownloadHeader {
    uint32_t index;
    uint32_t checksum;  // of the whole download; clients ignore it
    uint32_t length;    // the same
    uint32_t startOffset;

    bool FirstIsAll() const { return index == kEndOfDownloads; }
    auto Fields() { return std::tie(index, checksum, length, startOffset); }
};

// A request as the server reads it: the tag and the fields that it carries.
struct Request {
    std::string_view tag;  // one of the constants above
    std::string name;      // component or file name
    std::string version;   // "CSUM", "PATC"
    ResumeRequest resume{};
};
std::optional<Request> DecodeRequest(const uint8_t* data, size_t length);
