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

void PatchWriter::Append(const PatchWriter& other, uint64_t skipped) {
    for (const Command& command : other.m_commands) {
        const auto cut = static_cast<uint32_t>(std::min<uint64_t>(skipped, command.length));
        skipped -= cut;
        if (cut == command.length) continue;
        if (command.IsLiteral()) {
            Literal(command.length - cut);
        } else {
            Copy(command.offset + cut, command.length - cut);
        }
    }
}

void PatchWriter::LimitCommands(size_t limit) {
    for (uint64_t price = 1; m_commands.size() > limit; price += 1 + price / 16) {
        DropCopies(price, limit);
    }
}

// Goes through the commands once, dropping copies of which each command less costs at most so many
// bytes more.
void PatchWriter::DropCopies(uint64_t price, size_t limit) {
    std::deque<Command> before;
    before.swap(m_commands);
    m_size = kPatchEndOfPassSize;
    size_t total = before.size();
    while (!before.empty()) {
        const Command command = before.front();
        before.pop_front();
        if (command.IsLiteral()) {
            Literal(command.length);
            continue;
        }
        // It grows together with the literals on either side. Where there is none, it makes room
        // for the next copy to do so.
        const Command* next = before.empty() ? nullptr : &before.front();
        const unsigned fewer = InLiteral() + (next != nullptr && next->IsLiteral());
        const unsigned later =
            fewer == 0 && next != nullptr && next->length <= kPatchCopySize + price;
        const uint64_t more = command.length + kPatchLiteralHeaderSize;
        const uint64_t less = kPatchCopySize + fewer * kPatchLiteralHeaderSize;
        if (total > limit && fewer + later > 0 && more <= less + (fewer + later) * price) {
            Literal(command.length);
            total -= fewer;
        } else {
            Copy(command.offset, command.length);
        }
    }
}

bool PatchWriter::Write(const std::string& path, const uint8_t* contents,
                        std::string* error) const {
    Stream file = OpenForWriting(path);
    if (!file) return Fail(error, SystemError(path));
    for (const Command& command : m_commands) {
        if (command.IsLiteral()) {
            uint8_t header[kPatchLiteralHeaderSize] = {kPatchLiteral};
            PutNumber(header + 1, command.length);
            fwrite(header, 1, sizeof header, file.get());
            fwrite(contents, 1, command.length, file.get());
        } else {
            uint8_t copy[kPatchCopySize] = {kPatchCopy};
            PutNumber(copy + 1, command.offset);
            PutNumber(copy + 5, command.length);
            fwrite(copy, 1, sizeof copy, file.get());
        }
        contents += command.length;
    }
    fwrite(&kPatchEndOfPass, 1, kPatchEndOfPassSize, file.get());
    const bool written = CloseWritten(std::move(file));
    return written || Fail(error, SystemError(path));
}
