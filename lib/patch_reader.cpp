#include "lib/patch_reader.h"

#include "lib/patch_format.h"
#include "lib/stream.h"

PatchReader::PatchReader(FILE* patch)
    : m_patch(patch), m_size(static_cast<uint64_t>(StreamSize(patch))) {}

bool PatchReader::ReadNumber(uint32_t* number) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        const int byte = getc(m_patch);
        if (byte == EOF) return false;
        value = value << 8 | static_cast<uint32_t>(byte);
    }
    m_position += 4;
    *number = value;
    return true;
}

PatchCommand PatchReader::Next() {
    const int byte = getc(m_patch);
    // A file that cannot be read to its end is no shorter patch.
    if (byte == EOF)
        return {m_position < m_size ? PatchCommand::TRUNCATED : PatchCommand::END_OF_FILE};
    ++m_position;
    PatchCommand command{PatchCommand::UNKNOWN, static_cast<uint8_t>(byte)};
    switch (byte) {
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
            fseeko(m_patch, static_cast<off_t>(command.length), SEEK_CUR);
            m_position += command.length;
            break;
        case kPatchEndOfPass:
            command.kind = PatchCommand::END_OF_PASS;
            break;
    }
    return command;
}
