// IPv4 addresses: their texts, and how many clients each has.
#pragma once

#include <netinet/in.h>

#include <optional>
#include <string>
#include <unordered_map>

// "address:port".
std::string AddressText(const sockaddr_in& address);
// Null when the text is not ADDRESS:PORT with a port from 1 to 65535.
std::optional<sockaddr_in> ParseAddress(const std::string& text);

struct AddressRange {
    in_addr_t address, mask;

    bool Holds(const sockaddr_in& peer) const { return (peer.sin_addr.s_addr & mask) == address; }
};
// Null when the text is not ADDRESS or ADDRESS/BITS.
std::optional<AddressRange> ParseRange(const std::string& text);

// The clients of each address.
class AddressCounts {
public:
    // False when the address has as many as `most`, which 0 leaves without a limit.
    [[nodiscard]] bool Add(const sockaddr_in& address, int most) {
        int& clients = m_clients[address.sin_addr.s_addr];
        if (most > 0 && clients >= most) return false;
        ++clients;
        return true;
    }
    void Remove(const sockaddr_in& address) {
        const auto clients = m_clients.find(address.sin_addr.s_addr);
        if (--clients->second == 0) m_clients.erase(clients);
    }

private:
    std::unordered_map<in_addr_t, int> m_clients;
};
