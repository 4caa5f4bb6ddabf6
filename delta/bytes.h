// Looks at bytes, several at a time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

inline uint64_t Load64(const uint8_t* bytes) {
    uint64_t value;
    memcpy(&value, bytes, sizeof value);
    return value;
}

// How many bytes the two have in common: the first `done`, which are known to be the same, and
// those that follow, up to the limit.
inline size_t CommonLength(const uint8_t* a, const uint8_t* b, size_t done, size_t limit) {
    while (done + sizeof(uint64_t) <= limit) {
        const uint64_t difference = Load64(a + done) ^ Load64(b + done);
        if (difference != 0) {
            static_assert(std::endian::native == std::endian::little);
            return done + static_cast<size_t>(std::countr_zero(difference)) / 8;
        }
        done += sizeof(uint64_t);
    }
    while (done < limit && a[done] == b[done]) ++done;
    return done;
}

// The filter and the tables tell stretches apart by hashes of so many bytes.
constexpr size_t kWindow = 12;

inline uint64_t HashOfWindow(const uint8_t* window) {
    static_assert(kWindow == 12);
    const uint64_t mixed = Load64(window) * 0x9E3779B97F4A7C15u +
                           std::rotl(Load64(window + 4), 29) * 0xC2B2AE3D27D4EB4Fu;
    return (mixed ^ mixed >> 32) * 0xD6E8FEB86659FD93u;
}
