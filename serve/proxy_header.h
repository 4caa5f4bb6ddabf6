// The header of the PROXY protocol, version 1 or 2: by it a balancer names the client of a
// connection.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <optional>
#include <string_view>

struct ProxyHeader {
    size_t length = 0;  // 0 when `data` ends within the header
    // Null when the balancer speaks for itself, as in health checks, or for a client without IPv4.
    std::optional<sockaddr_in> client;
};
// Null when `data` cannot begin with a header.
std::optional<ProxyHeader> ParseProxyHeader(std::string_view data);
