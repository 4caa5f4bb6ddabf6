#include "delta/patch_writer.h"

#include <algorithm>

#include "lib/failure.h"
#include "lib/patch_format.h"
#include "lib/stream.h"

namespace {

void PutNumber(uint8_t* bytes, uint32_t value) {
    for (int i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

}  // namespace

void PatchWriter::Copy(uint32_t offset, uint32_t length) {
    if (!m_commands.empty() && !InLiteral() &&
        m_commands.back().offset + m_commands.back().length == offset) {
        m_commands.back().length += length;
        return;
    }
    m_commands.push_back({offset, length});
    m_size += kPatchCopySize;
}

void PatchWriter::Literal(uint32_t length) {
    m_size += length;
    if (InLiteral()) {
        m_commands.back().length += length;
        return;
    }
    m_commands.push_back({kLiteral, length});
    m_size += kPatchLiteralHeaderSize;
}

std::optional<uint32_t> PatchWriter::CopyEnd() const {
    if (m_commands.empty() || InLiteral()) return {};
    return m_commands.back().offset + m_commands.back().length;
}

void PatchWriter::Add(const Command& command) {
    command.IsLiteral() ? Literal(command.length) : Copy(command.offset, command.length);
}

void PatchWriter::Append(const PatchWriter& other, uint64_t skipped) {
    for (const Command& command : other.m_commands) {
        const auto cut = static_cast<uint32_t>(std::min<uint64_t>(skipped, command.length));
        skipped -= cut;
        if (cut == command.length) continue;
        const uint32_t offset = command.IsLiteral() ? kLiteral : command.offset + cut;
        Add({offset, command.length - cut});
    }
}

void PatchWriter::LimitCommands(size_t limit) {
    for (uint32_t least = kPatchCopySize + 1; m_commands.size() > limit; least += 1 + least / 16) {
        std::deque<Command> before;
        before.swap(m_commands);
        m_size = kPatchEndOfPassSize;
        for (; !before.empty(); before.pop_front()) {
            const Command& command = before.front();
            const bool tooMany = m_commands.size() + before.size() > limit;
            Add({tooMany && command.length < least ? kLiteral : command.offset, command.length});
        }
    }
}

bool PatchWriter::Write(const std::string& path, const uint8_t* contents,
                        std::string* error) const {
    Stream file = OpenForWriting(path);
    if (!file) return Fail(error, SystemError(path));
    for (const Command& command : m_commands) {
        const bool literal = command.IsLiteral();
        uint8_t bytes[kPatchCopySize] = {literal ? kPatchLiteral : kPatchCopy};
        PutNumber(bytes + 1, literal ? command.length : command.offset);
        PutNumber(bytes + 5, command.length);
        fwrite(bytes, 1, literal ? kPatchLiteralHeaderSize : kPatchCopySize, file.get());
        if (literal) fwrite(contents, 1, command.length, file.get());
        contents += command.length;
    }
    fwrite(&kPatchEndOfPass, 1, kPatchEndOfPassSize, file.get());
    const bool written = CloseWritten(std::move(file));
    return written || Fail(error, SystemError(path));
}
