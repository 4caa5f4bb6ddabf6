// The note by which the maker's tool tells an updater from other programs (lib/elf_file.h).
#include <cstdint>

#include "halcyrix_config.h"
#include "lib/elf_file.h"

namespace {

constexpr char kText[] = "halcyrix-updater\n" HALCYRIX_VERSION "\n" HALCYRIX_UPDATE_HOST_LINES;

// The layout of a note in an ELF file: three numbers, then the owner's name and the text, each
// padded to four bytes.
struct Note {
    uint32_t nameSize = sizeof kUpdaterNoteOwner;
    uint32_t textSize = sizeof kText;
    uint32_t type = kUpdaterNoteType;
    alignas(4) char name[sizeof kUpdaterNoteOwner];
    alignas(4) char text[sizeof kText];
};

template <size_t Size>
constexpr void Fill(char (&target)[Size], const char (&source)[Size]) {
    for (size_t i = 0; i < Size; ++i) target[i] = source[i];
}

constexpr Note MakeNote() {
    Note note{};
    Fill(note.name, kUpdaterNoteOwner);
    Fill(note.text, kText);
    return note;
}

[[gnu::used, gnu::aligned(4), gnu::section(".note.halcyrix")]] const Note updater_note = MakeNote();

}  // namespace
