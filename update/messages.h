// The messages of the update protocol, as both ends know them. Each is the payload of one packet.
//
// Requests begin with a four-letter tag; integers are little-endian; texts end with a NUL. Encoding
// gives a payload; decoding does no I/O and tells a malformed payload by std::nullopt. Bytes beyond
// a reply's last field are passed over, and of a reply that its first field says all about the
// others may be missing; a request ends with its last field.
#ifndef HALCYRIX_UPDATE_MESSAGES_H
#define HALCYRIX_UPDATE_MESSAGES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "net/frame.h"

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

// The data of a file travel in packets of exactly this size; a shorter one, maybe empty, ends it.
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
};
std::string Encode(const ResumeRequest& message);

// Replies.

struct FileListEntry {
    std::string name;
    uint32_t checksum;
    uint32_t length;
};
std::string Encode(const FileListEntry& message);
std::optional<FileListEntry> DecodeFileListEntry(const uint8_t* data, size_t length);

struct ChecksumReply {
    uint32_t checksum;  // in the installed version; kNoChecksum when there is none
};
std::string Encode(const ChecksumReply& message);
std::optional<ChecksumReply> DecodeChecksumReply(const uint8_t* data, size_t length);

struct FullReply {
    uint32_t index;
    uint32_t checksum;
    uint32_t length;
};
std::string Encode(const FullReply& message);
std::optional<FullReply> DecodeFullReply(const uint8_t* data, size_t length);

struct PatchReply {
    std::string downloadName;
    uint32_t index;
    uint32_t length;  // of what will be sent
    uint32_t checksum;
    bool isPatch;  // else the whole file is sent
};
std::string Encode(const PatchReply& message);
std::optional<PatchReply> DecodePatchReply(const uint8_t* data, size_t length);

struct ResumeReply {
    bool accepted;
};
std::string Encode(const ResumeReply& message);
std::optional<ResumeReply> DecodeResumeReply(const uint8_t* data, size_t length);

struct QueueStatus {
    bool ready;         // the rest is of no use then, and may be missing
    uint16_t position;  // 0 is the first
    uint16_t queueLength;
    uint16_t rate;  // places served per 100 seconds
};
std::string Encode(const QueueStatus& message);
std::optional<QueueStatus> DecodeQueueStatus(const uint8_t* data, size_t length);

struct DownloadHeader {
    uint32_t index;     // kEndOfDownloads stands alone; the rest may be missing
    uint32_t checksum;  // of the whole download; clients pass over it
    uint32_t length;    // the same
    uint32_t startOffset;
};
std::string Encode(const DownloadHeader& message);
std::optional<DownloadHeader> DecodeDownloadHeader(const uint8_t* data, size_t length);

// A request as the server reads it: the tag and, by tag, the fields that it carries.
struct Request {
    std::string_view tag;  // one of the constants above
    std::string name;      // component or file name
    std::string version;   // "CSUM", "PATC"
    ResumeRequest resume{};
};
std::optional<Request> DecodeRequest(const uint8_t* data, size_t length);

#endif
