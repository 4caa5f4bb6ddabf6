#include "serve/proxy_header.h"

#include <cstdint>
#include <sstream>
#include <string>

#include "serve/addresses.h"

namespace {

constexpr std::string_view kTextBegin = "PROXY ";
constexpr size_t kMaxText = 107;

constexpr std::string_view kBinaryBegin("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr size_t kFixedPart = 16;  // signature, version and command, family, length of the rest
constexpr size_t kMaxBinary = 2048;
constexpr uint8_t kLocal = 0x20, kProxy = 0x21;  // version and command
constexpr uint8_t kTcp4 = 0x11;
constexpr size_t kTcp4Addresses = 12;

std::optional<ProxyHeader> ParseText(std::string_view data) {
    const size_t end = data.substr(0, kMaxText).find("\r\n");
    if (end == std::string_view::npos) {
        return data.size() < kMaxText ? std::optional(ProxyHeader()) : std::nullopt;
    }
    std::istringstream words(std::string(data.substr(0, end)));
    std::string proxy, family, from, to, fromPort, toPort, more;
    words >> proxy >> family >> from >> to >> fromPort >> toPort;
    if (family == "UNKNOWN" || family == "TCP6") return ProxyHeader{end + 2, {}};
    const auto client = ParseAddress(from + ":" + fromPort);
    const bool good = family == "TCP4" && client && ParseAddress(to + ":" + toPort);
    return good && !(words >> more) ? std::optional(ProxyHeader{end + 2, client}) : std::nullopt;
}

std::optional<ProxyHeader> ParseBinary(std::string_view data) {
    if (data.size() < kFixedPart) return ProxyHeader();
    const auto byte = [data](size_t at) { return static_cast<uint8_t>(data[at]); };
    const size_t length = kFixedPart + byte(14) * size_t{256} + byte(15);
    const bool named = byte(12) == kProxy && byte(13) == kTcp4;
    if ((byte(12) != kLocal && byte(12) != kProxy) || length > kMaxBinary ||
        (named && length < kFixedPart + kTcp4Addresses)) {
        return std::nullopt;
    }
    if (data.size() < length) return ProxyHeader();
    if (!named) return ProxyHeader{length, {}};
    sockaddr_in client{};
    client.sin_family = AF_INET;
    data.copy(reinterpret_cast<char*>(&client.sin_addr), sizeof client.sin_addr, kFixedPart);
    data.copy(reinterpret_cast<char*>(&client.sin_port), sizeof client.sin_port, kFixedPart + 8);
    return ProxyHeader{length, client};
}

}  // namespace

std::optional<ProxyHeader> ParseProxyHeader(std::string_view data) {
    const auto canBeginWith = [data](std::string_view begin) {
        return data.substr(0, begin.size()) == begin.substr(0, data.size());
    };
    if (canBeginWith(kTextBegin)) return ParseText(data);
    return canBeginWith(kBinaryBegin) ? ParseBinary(data) : std::nullopt;
}
