#include "serve/addresses.h"

#include <arpa/inet.h>
#include <event2/util.h>

std::string AddressText(const sockaddr_in& address) {
    char text[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
    return text + (":" + std::to_string(ntohs(address.sin_port)));
}

std::optional<sockaddr_in> ParseAddress(const std::string& text) {
    sockaddr_in address{};
    int size = sizeof address;
    if (evutil_parse_sockaddr_port(text.c_str(), reinterpret_cast<sockaddr*>(&address), &size) !=
            0 ||
        address.sin_port == 0) {
        return std::nullopt;
    }
    return address;
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
