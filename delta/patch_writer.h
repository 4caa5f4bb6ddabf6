// The writing end of the patch format.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "lib/patch_format.h"

// What updaters that are out there take of a patch of one pass.
constexpr size_t kMaxCommands = 2 * 1024 * 1024;

// The commands of a patch of one pass, in order; neighbours that continue one another become one
// command. Takes eight bytes of memory for each.
class PatchWriter {
public:
    void Copy(uint32_t offset, uint32_t length);
    void Literal(uint32_t length);
    // Whether the last command is a literal, which another one would continue.
    bool InLiteral() const { return !m_commands.empty() && m_commands.back().IsLiteral(); }
    // Where in the old contents the last command ends, if it is a copy.
    std::optional<uint32_t> CopyEnd() const;
    // Adds the commands of another writer, without those for its first `skipped` bytes.
    void Append(const PatchWriter& other, uint64_t skipped);

    // The commands, and the bytes that the patch would take.
    size_t Commands() const { return m_commands.size(); }
    uint64_t Size() const { return m_size; }

    // While there are more commands than the limit, turns the shortest copies into literals.
    void LimitCommands(size_t limit);

    // Writes the patch, with the literals' data from the new contents. False when not everything
    // reached the system.
    [[nodiscard]] bool Write(const std::string& path, const uint8_t* contents,
                             std::string* error) const;

private:
    struct Command {
        uint32_t offset;
        uint32_t length;
        bool IsLiteral() const { return offset == kLiteral; }
    };
    void Add(const Command& command);
    static constexpr uint32_t kLiteral = UINT32_MAX;  // no offset: the old contents end before it

    std::deque<Command> m_commands;  // grows without being moved
    uint64_t m_size = kPatchEndOfPassSize;
};
