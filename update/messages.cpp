#include "update/messages.h"

namespace {

constexpr size_t kTagSize = 4;

}  // namespace

std::string EncodeNamed(std::string_view tag, std::string_view name) {
    std::string payload(tag);
    PutField(&payload, name);
    return payload;
}

std::string EncodeVersioned(std::string_view tag, std::string_view version, std::string_view name) {
    std::string payload(tag);
    PutField(&payload, version);
    PutField(&payload, name);
    return payload;
}

std::optional<Request> DecodeRequest(const uint8_t* data, size_t length) {
    const std::string_view payload(reinterpret_cast<const char*>(data), length);
    for (const std::string_view bare :
         {kGreeting, kTagMotd, kTagVersion, kTagQueue, kTagDownload}) {
        if (payload == bare) return Request{bare, {}, {}};
    }
    if (payload.size() < kTagSize) return std::nullopt;
    FieldReader reader(payload.substr(kTagSize));
    Request request;
    const auto has = [&](std::string_view tag) {
        if (!payload.starts_with(tag)) return false;
        request.tag = tag;
        return true;
    };
    if (has(kTagComponent) || has(kTagFull)) {
        reader.Take(request.name);
    } else if (has(kTagChecksum) || has(kTagPatch)) {
        reader.Take(request.version);
        reader.Take(request.name);
    } else if (has(kTagResume)) {
        reader.Take(request.resume.offset);
        reader.Take(request.resume.tailChecksum);
    }
    if (request.tag.empty() || !reader.Ok() || !reader.AtEnd()) return std::nullopt;
    return request;
}
