// The one reader of fields in received messages.
#ifndef HALCYRIX_UPDATE_BYTE_READER_H
#define HALCYRIX_UPDATE_BYTE_READER_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

// Takes little-endian fields off the front of a run of bytes, which must outlive the reader. A
// field that reaches past the end makes the reader fail, for good: Ok() is asked once, at the end.
class ByteReader {
public:
    ByteReader(const uint8_t* data, size_t length) : m_data(data), m_remaining(length) {}

    bool Ok() const { return m_ok; }
    size_t Remaining() const { return m_remaining; }

    uint8_t U8() { return static_cast<uint8_t>(Number(1)); }
    uint16_t U16() { return static_cast<uint16_t>(Number(2)); }
    uint32_t U32() { return Number(4); }

    // The bytes up to the next NUL, which is taken too.
    std::string Text() {
        const void* end = m_remaining > 0 ? memchr(m_data, 0, m_remaining) : nullptr;
        if (end == nullptr) {
            Fail();
            return {};
        }
        const auto length = static_cast<size_t>(static_cast<const uint8_t*>(end) - m_data);
        std::string text(reinterpret_cast<const char*>(m_data), length);
        Advance(length + 1);
        return text;
    }

private:
    uint32_t Number(size_t size) {
        if (m_remaining < size) {
            Fail();
            return 0;
        }
        uint32_t value = 0;
        for (size_t i = 0; i < size; ++i) value |= static_cast<uint32_t>(m_data[i]) << (8 * i);
        Advance(size);
        return value;
    }

    void Advance(size_t count) {
        m_data += count;
        m_remaining -= count;
    }

    void Fail() {
        m_ok = false;
        m_remaining = 0;
    }

    const uint8_t* m_data;
    size_t m_remaining;
    bool m_ok = true;
};

#endif
