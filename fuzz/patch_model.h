// The patch format once more, with strings.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

inline std::string Number(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift);
    return bytes;
}

inline std::string Copy(uint32_t offset, uint32_t length) {
    return "C" + Number(offset) + Number(length);
}

inline std::string Literal(const std::string& data) {
    return "L" + Number(static_cast<uint32_t>(data.size())) + data;
}

// The new contents, as the format's description has it; nothing for a patch that must be refused.
inline std::optional<std::string> Model(std::string current, const std::string& patch) {
    std::string output;
    size_t at = 0;
    const auto number = [&](uint64_t* value) {
        if (patch.size() - at < 4) return false;
        *value = 0;
        for (const size_t end = at + 4; at < end; ++at) {
            *value = *value * 256 + static_cast<uint8_t>(patch[at]);
        }
        return true;
    };
    while (at < patch.size()) {
        uint64_t offset, length;
        switch (patch[at++]) {
            case 'C':
                if (!number(&offset) || !number(&length)) return std::nullopt;
                if (offset + length > current.size()) return std::nullopt;
                output += current.substr(offset, length);
                break;
            case 'L':
                if (!number(&length) || length > patch.size() - at) return std::nullopt;
                output += patch.substr(at, length);
                at += length;
                break;
            case 'R':
                if (!output.empty()) current = std::exchange(output, {});
                break;
            default: return std::nullopt;
        }
    }
    return output.empty() ? current : output;
}
