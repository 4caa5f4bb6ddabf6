// Packets as they go over the wire.
#ifndef HALCYRIX_TESTS_SUPPORT_FRAME_OF_H
#define HALCYRIX_TESTS_SUPPORT_FRAME_OF_H

#include <string>

#include "net/frame.h"

inline std::string FrameOf(const std::string& payload) {
    uint8_t header[kFrameHeaderSize];
    PutFrameHeader(header, static_cast<int>(payload.size()));
    return std::string(header, header + kFrameHeaderSize) + payload;
}

#endif
