#include "lib/checksum.h"

#include <cstring>

namespace {

constexpr uint32_t kStart = 0xa5be5705;

void Mix(uint32_t& a, uint32_t& b, uint32_t& c) {
    a = (a - b - c) ^ (c >> 13);
    b = (b - c - a) ^ (a << 8);
    c = (c - a - b) ^ (b >> 13);
    a = (a - b - c) ^ (c >> 12);
    b = (b - c - a) ^ (a << 16);
    c = (c - a - b) ^ (b >> 5);
    a = (a - b - c) ^ (c >> 3);
    b = (b - c - a) ^ (a << 10);
    c = (c - a - b) ^ (b >> 15);
}

uint32_t Load32(const uint8_t* bytes) {
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

}  // namespace

uint32_t Checksum(const void* data, uint32_t length, uint32_t initial) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    uint32_t a = kStart;
    uint32_t b = kStart;
    uint32_t c = initial;
    uint32_t remaining = length;
    for (; remaining >= 12; remaining -= 12, bytes += 12) {
        a += Load32(bytes);
        b += Load32(bytes + 4);
        c += Load32(bytes + 8);
        Mix(a, b, c);
    }

    // The rest counts as if padded with zeros, except that the low byte of c takes the length.
    uint8_t rest[12] = {};
    if (remaining > 0) memcpy(rest, bytes, remaining);
    a += Load32(rest);
    b += Load32(rest + 4);
    c += length + (Load32(rest + 8) << 8);
    Mix(a, b, c);
    return c;
}
