// The frame of a packet on the wire: a two-byte big-endian payload length, then the payload.
#pragma once

#include <cstdint>

constexpr int kFrameHeaderSize = 2;
constexpr int kMaxPayload = 8190;
constexpr int kMaxFrame = kFrameHeaderSize + kMaxPayload;

inline void PutFrameHeader(uint8_t* frame, int payloadLength) {
    frame[0] = static_cast<uint8_t>(payloadLength >> 8);
    frame[1] = static_cast<uint8_t>(payloadLength);
}

// The payload length that a frame header announces; more than kMaxPayload in an invalid frame.
inline int FramePayloadLength(const uint8_t* frame) { return frame[0] * 256 + frame[1]; }
