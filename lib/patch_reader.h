// The commands of a patch file, one after the other.
#pragma once

#include <cstdint>
#include <cstdio>

struct PatchCommand {
    enum Kind { COPY, LITERAL, END_OF_PASS, END_OF_FILE, UNKNOWN, TRUNCATED };

    Kind kind;
    uint8_t byte = 0;           // the command byte
    uint32_t offset = 0;        // COPY
    uint32_t length = 0;        // COPY, LITERAL
    uint64_t dataPosition = 0;  // LITERAL: where in the patch file its data begin
};

// Reads the commands of an open patch file from its start and skips the data of literals. A command
// that ends after the file is TRUNCATED. Does not own the stream; nobody else may move it.
class PatchReader {
public:
    explicit PatchReader(FILE* patch);

    uint64_t Size() const { return m_size; }

    PatchCommand Next();

private:
    // False when the file ends before the value does.
    bool ReadByte(uint8_t* byte);
    bool ReadNumber(uint32_t* number);

    FILE* m_patch;
    uint64_t m_size;
    uint64_t m_position = 0;
};
