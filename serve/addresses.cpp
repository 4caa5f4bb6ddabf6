#include "serve/addresses.h"

#include <arpa/inet.h>

#include <charconv>

std::string AddressText(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text + (":" + std::to_string(ntohs(address.sin_port)));
}

std::optional<sockaddr_in> ParseAddress(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) return std::nullopt;
    uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, fault] = std::from_chars(text.data() + colon + 1, end, port);
    sockaddr_in address{AF_INET, htons(port), {}, {}};
    const bool good = fault == std::errc() && rest == end && port > 0 &&
                      inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.sin_addr) == 1;
    return good ? std::optional(address) : std::nullopt;
}

bool AddressCounts::Add(const sockaddr_in& address, int most) {
    int& clients = m_clients[address.sin_addr.s_addr];
    if (most > 0 && clients >= most) return false;
    ++clients;
    return true;
}

void AddressCounts::Remove(const sockaddr_in& address) {
    const auto clients = m_clients.find(address.sin_addr.s_addr);
    if (--clients->second == 0) m_clients.erase(clients);
}
