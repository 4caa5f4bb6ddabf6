#include "lib/patch_reader.h"

#include "lib/patch_format.h"
#include "lib/stream.h"

PatchReader::PatchReader(FILE* patch)
    : m_patch(patch), m_size(static_cast<uint64_t>(StreamSize(patch))) {
    MoveTo(patch, 0);
}

bool PatchReader::ReadByte(uint8_t* byte) {
    const int next = getc_unlocked(m_patch);
    if (next == EOF) return false;
    *byte = static_cast<uint8_t>(next);
    ++m_position;
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
        // After a read error the patch must not count as complete.
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
            MoveTo(m_patch, m_position);
            break;
        case kPatchEndOfPass: command.kind = PatchCommand::END_OF_PASS; break;
    }
    return command;
}
