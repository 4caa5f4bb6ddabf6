/* The checksum in plain C: what lib/checksum.cpp is measured against. */
#ifndef HALCYRIX_BENCH_PLAIN_CHECKSUM_H
#define HALCYRIX_BENCH_PLAIN_CHECKSUM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

uint32_t PlainChecksum(const uint8_t* data, uint32_t length, uint32_t initial);

#ifdef __cplusplus
}
#endif

#endif
