#include "serve/addresses.h"

#include <arpa/inet.h>
#include <event2/util.h>

#include <cstdio>

std::string AddressText(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text + (":" + std::to_string(ntohs(address.sin_port)));
}

std::optional<sockaddr_in> ParseAddress(const std::string& text) {
    sockaddr_in address{};
    int size = sizeof address;
    const bool good =
        text.find_first_not_of("0123456789.:") == std::string::npos &&
        evutil_parse_sockaddr_port(text.c_str(), reinterpret_cast<sockaddr*>(&address), &size) == 0;
    return good && address.sin_port != 0 ? std::optional(address) : std::nullopt;
}

std::optional<AddressRange> ParseRange(const std::string& text) {
    in_addr address;
    int bits = 32, read = 0;
    const size_t slash = text.find('/');
    if (slash != std::string::npos &&
        (sscanf(text.c_str() + slash, "/%2d%n", &bits, &read) != 1 || text[slash + read] != 0)) {
        return std::nullopt;
    }
    if (inet_pton(AF_INET, text.substr(0, slash).c_str(), &address) != 1 || bits < 0 || bits > 32) {
        return std::nullopt;
    }
    const in_addr_t mask = htonl(static_cast<uint32_t>(~(0xFFFFFFFFull >> bits)));
    return AddressRange{address.s_addr & mask, mask};
}
