#include "delta/patch_writer.h"

#include "lib/patch_format.h"
#include "lib/whole_file.h"

namespace {

void PutNumber(uint8_t* bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

}  // namespace

bool PatchWriter::Open(const std::string& path, std::string* error) {
    m_path = path;
    m_file = OpenForWriting(path);
    if (!m_file) *error = SystemError(path);
    return m_file != nullptr;
}

void PatchWriter::Copy(uint32_t offset, uint32_t length) {
    if (m_length > 0 && m_literal == nullptr && m_offset + m_length == offset) {
        m_length += length;
        return;
    }
    Flush();
    m_offset = offset;
    m_length = length;
    ++m_commands;
}

void PatchWriter::Literal(const uint8_t* data, uint32_t length) {
    if (m_literal != nullptr && m_literal + m_length == data) {
        m_length += length;
        return;
    }
    Flush();
    m_literal = data;
    m_length = length;
    ++m_commands;
}

bool PatchWriter::Finish(std::string* error) {
    Flush();
    Put(&kPatchEndOfPass, kPatchEndOfPassSize);
    const bool written = CloseWritten(std::move(m_file));
    if (!written) *error = SystemError(m_path);
    return written;
}

void PatchWriter::Flush() {
    if (m_literal != nullptr) {
        uint8_t header[kPatchLiteralHeaderSize] = {kPatchLiteral};
        PutNumber(header + 1, m_length);
        Put(header, sizeof header);
        Put(m_literal, m_length);
    } else if (m_length > 0) {
        uint8_t command[kPatchCopySize] = {kPatchCopy};
        PutNumber(command + 1, m_offset);
        PutNumber(command + 5, m_length);
        Put(command, sizeof command);
    }
    m_literal = nullptr;
    m_length = 0;
}

void PatchWriter::Put(const void* data, size_t size) {
    fwrite(data, 1, size, m_file.get());
    m_size += size;
}
