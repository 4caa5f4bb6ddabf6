#include "lib/patch_reader.h"

#include <unistd.h>

#include "lib/patch_format.h"
#include "lib/stream.h"

namespace {
constexpr size_t kBuffer = 16 * 1024;
}

PatchReader::PatchReader(FILE* patch)
    : m_patch(patch), m_size(static_cast<uint64_t>(StreamSize(patch))), m_buffer(kBuffer) {}

bool PatchReader::ReadByte(uint8_t* byte) {
    if (m_position - m_buffered >= m_filled) {
        const ssize_t got = pread(fileno(m_patch), m_buffer.data(), m_buffer.size(),
                                  static_cast<off_t>(m_position));
        m_filled = got > 0 ? static_cast<size_t>(got) : 0;
        m_buffered = m_position;
        if (m_filled == 0) return false;
    }
    *byte = m_buffer[m_position++ - m_buffered];
    return true;
}

bool PatchReader::ReadNumber(uint32_t* number) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        uint8_t byte;
        if (!ReadByte(&byte)) return false;
        value = value << 8 | byte;
    }
    *number = value;
    return true;
}

PatchCommand PatchReader::Next() {
    PatchCommand command{PatchCommand::UNKNOWN};
    if (!ReadByte(&command.byte)) {
        // A file that cannot be read to its end is no shorter patch.
        return {m_position < m_size ? PatchCommand::TRUNCATED : PatchCommand::END_OF_FILE};
    }
    switch (command.byte) {
        case kPatchCopy: {
            const bool whole = ReadNumber(&command.offset) && ReadNumber(&command.length);
            command.kind = whole ? PatchCommand::COPY : PatchCommand::TRUNCATED;
            break;
        }
        case kPatchLiteral:
            command.kind = PatchCommand::TRUNCATED;
            if (!ReadNumber(&command.length) || command.length > m_size - m_position) break;
            command.kind = PatchCommand::LITERAL;
            command.dataPosition = m_position;
            m_position += command.length;
            break;
        case kPatchEndOfPass:
            command.kind = PatchCommand::END_OF_PASS;
            break;
    }
    return command;
}
