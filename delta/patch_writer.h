// The writing end of the patch format.
#ifndef HALCYRIX_DELTA_PATCH_WRITER_H
#define HALCYRIX_DELTA_PATCH_WRITER_H

#include <cstdint>
#include <string>

#include "lib/stream.h"

// Writes a patch of one pass, command by command; neighbours that continue one another become one
// command. Literal data are not copied and must stay until the next command.
class PatchWriter {
public:
    [[nodiscard]] bool Open(const std::string& path, std::string* error);

    void Copy(uint32_t offset, uint32_t length);
    void Literal(const uint8_t* data, uint32_t length);
    // Whether the last command is a literal, which another one would continue.
    bool InLiteral() const { return m_literal != nullptr; }

    // The bytes written, and the commands begun.
    uint64_t Size() const { return m_size; }
    uint64_t Commands() const { return m_commands; }

    // Ends the pass and closes the file. False when not everything reached the system.
    [[nodiscard]] bool Finish(std::string* error);

private:
    void Flush();
    void Put(const void* data, size_t size);

    std::string m_path;
    Stream m_file;
    uint64_t m_size = 0;
    uint64_t m_commands = 0;

    // The command that may still grow: a literal, else a copy, unless the length is 0.
    const uint8_t* m_literal = nullptr;
    uint32_t m_offset = 0;
    uint32_t m_length = 0;
};

#endif
