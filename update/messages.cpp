#include "update/messages.h"

#include <utility>

#include "update/byte_reader.h"

namespace {

constexpr size_t kTagSize = 4;

void PutNumber(std::string* payload, uint32_t value, int size) {
    for (int i = 0; i < size; ++i) payload->push_back(static_cast<char>(value >> (8 * i)));
}

void PutU8(std::string* payload, uint8_t value) {
    PutNumber(payload, value, 1);
}

void PutU16(std::string* payload, uint16_t value) {
    PutNumber(payload, value, 2);
}

void PutU32(std::string* payload, uint32_t value) {
    PutNumber(payload, value, 4);
}

void PutText(std::string* payload, std::string_view text) {
    payload->append(text);
    payload->push_back('\0');
}

template <typename Message>
std::optional<Message> IfOk(const ByteReader& reader, Message message) {
    if (!reader.Ok()) return std::nullopt;
    return message;
}

}  // namespace

std::string EncodeNamed(std::string_view tag, std::string_view name) {
    std::string payload(tag);
    PutText(&payload, name);
    return payload;
}

std::string EncodeVersioned(std::string_view tag, std::string_view version, std::string_view name) {
    std::string payload(tag);
    PutText(&payload, version);
    PutText(&payload, name);
    return payload;
}

std::string Encode(const ResumeRequest& message) {
    std::string payload(kTagResume);
    PutU32(&payload, message.offset);
    PutU32(&payload, message.tailChecksum);
    return payload;
}

std::string Encode(const FileListEntry& message) {
    std::string payload;
    PutText(&payload, message.name);
    PutU32(&payload, message.checksum);
    PutU32(&payload, message.length);
    return payload;
}

std::optional<FileListEntry> DecodeFileListEntry(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    FileListEntry message;
    message.name = reader.Text();
    message.checksum = reader.U32();
    message.length = reader.U32();
    return IfOk(reader, std::move(message));
}

std::string Encode(const ChecksumReply& message) {
    std::string payload;
    PutU32(&payload, message.checksum);
    return payload;
}

std::optional<ChecksumReply> DecodeChecksumReply(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    ChecksumReply message{reader.U32()};
    return IfOk(reader, message);
}

std::string Encode(const FullReply& message) {
    std::string payload;
    PutU32(&payload, message.index);
    PutU32(&payload, message.checksum);
    PutU32(&payload, message.length);
    return payload;
}

std::optional<FullReply> DecodeFullReply(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    FullReply message{};
    message.index = reader.U32();
    message.checksum = reader.U32();
    message.length = reader.U32();
    return IfOk(reader, message);
}

std::string Encode(const PatchReply& message) {
    std::string payload;
    PutText(&payload, message.downloadName);
    PutU32(&payload, message.index);
    PutU32(&payload, message.length);
    PutU32(&payload, message.checksum);
    PutU8(&payload, message.isPatch);
    return payload;
}

std::optional<PatchReply> DecodePatchReply(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    PatchReply message{};
    message.downloadName = reader.Text();
    message.index = reader.U32();
    message.length = reader.U32();
    message.checksum = reader.U32();
    message.isPatch = reader.U8() != 0;
    return IfOk(reader, std::move(message));
}

std::string Encode(const ResumeReply& message) {
    std::string payload;
    PutU8(&payload, message.accepted);
    return payload;
}

std::optional<ResumeReply> DecodeResumeReply(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    ResumeReply message{reader.U8() != 0};
    return IfOk(reader, message);
}

std::string Encode(const QueueStatus& message) {
    std::string payload;
    PutU8(&payload, message.ready);
    PutU16(&payload, message.position);
    PutU16(&payload, message.queueLength);
    PutU16(&payload, message.rate);
    return payload;
}

std::optional<QueueStatus> DecodeQueueStatus(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    QueueStatus message{};
    message.ready = reader.U8() != 0;
    if (message.ready) return message;
    message.position = reader.U16();
    message.queueLength = reader.U16();
    message.rate = reader.U16();
    return IfOk(reader, message);
}

std::string Encode(const DownloadHeader& message) {
    std::string payload;
    PutU32(&payload, message.index);
    PutU32(&payload, message.checksum);
    PutU32(&payload, message.length);
    PutU32(&payload, message.startOffset);
    return payload;
}

std::optional<DownloadHeader> DecodeDownloadHeader(const uint8_t* data, size_t length) {
    ByteReader reader(data, length);
    DownloadHeader message{};
    message.index = reader.U32();
    if (reader.Ok() && message.index == kEndOfDownloads) return message;
    message.checksum = reader.U32();
    message.length = reader.U32();
    message.startOffset = reader.U32();
    return IfOk(reader, message);
}

std::optional<Request> DecodeRequest(const uint8_t* data, size_t length) {
    const std::string_view payload(reinterpret_cast<const char*>(data), length);
    if (payload == kGreeting) return Request{kGreeting, {}, {}};
    const std::string_view tag = payload.substr(0, kTagSize);
    for (const std::string_view bare : {kTagMotd, kTagVersion, kTagQueue, kTagDownload}) {
        if (payload == bare) return Request{bare, {}, {}};
    }
    if (tag.size() < kTagSize) return std::nullopt;

    ByteReader reader(data + kTagSize, length - kTagSize);
    Request request;
    for (const std::string_view named : {kTagComponent, kTagFull}) {
        if (tag != named) continue;
        request.tag = named;
        request.name = reader.Text();
    }
    for (const std::string_view versioned : {kTagChecksum, kTagPatch}) {
        if (tag != versioned) continue;
        request.tag = versioned;
        request.version = reader.Text();
        request.name = reader.Text();
    }
    if (tag == kTagResume) {
        request.tag = kTagResume;
        request.resume.offset = reader.U32();
        request.resume.tailChecksum = reader.U32();
    }
    if (request.tag.empty() || reader.Remaining() > 0) return std::nullopt;
    return IfOk(reader, std::move(request));
}
