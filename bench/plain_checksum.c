#include "bench/plain_checksum.h"

#define MIX(a, b, c)                  \
    do {                              \
        a -= b, a -= c, a ^= c >> 13; \
        b -= c, b -= a, b ^= a << 8;  \
        c -= a, c -= b, c ^= b >> 13; \
        a -= b, a -= c, a ^= c >> 12; \
        b -= c, b -= a, b ^= a << 16; \
        c -= a, c -= b, c ^= b >> 5;  \
        a -= b, a -= c, a ^= c >> 3;  \
        b -= c, b -= a, b ^= a << 10; \
        c -= a, c -= b, c ^= b >> 15; \
    } while (0)

static uint32_t word(const uint8_t* k) {
    return k[0] + ((uint32_t)k[1] << 8) + ((uint32_t)k[2] << 16) + ((uint32_t)k[3] << 24);
}

uint32_t PlainChecksum(const uint8_t* data, uint32_t length, uint32_t initial) {
    const uint8_t* k = data;
    uint32_t a = 0xa5be5705, b = 0xa5be5705, c = initial, left = length;
    while (left >= 12) {
        a += word(k);
        b += word(k + 4);
        c += word(k + 8);
        MIX(a, b, c);
        k += 12;
        left -= 12;
    }
    c += length;
    switch (left) {                          /* every case falls through */
        case 11: c += (uint32_t)k[10] << 24; /* fall through */
        case 10: c += (uint32_t)k[9] << 16;  /* fall through */
        case 9: c += (uint32_t)k[8] << 8;    /* fall through */
        case 8: b += (uint32_t)k[7] << 24;   /* fall through */
        case 7: b += (uint32_t)k[6] << 16;   /* fall through */
        case 6: b += (uint32_t)k[5] << 8;    /* fall through */
        case 5: b += k[4];                   /* fall through */
        case 4: a += (uint32_t)k[3] << 24;   /* fall through */
        case 3: a += (uint32_t)k[2] << 16;   /* fall through */
        case 2: a += (uint32_t)k[1] << 8;    /* fall through */
        case 1: a += k[0];
    }
    MIX(a, b, c);
    return c;
}
