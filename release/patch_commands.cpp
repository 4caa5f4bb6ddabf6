#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "delta/delta.h"
#include "lib/file_helpers.h"
#include "lib/patch_buffer.h"
#include "lib/patch_reader.h"
#include "lib/stream.h"
#include "lib/whole_file.h"
#include "release/commands.h"
#include "store/updater_program.h"

namespace {

struct Totals {
    uint64_t copies = 0;
    uint64_t copied = 0;
    uint64_t literals = 0;
    uint64_t literal = 0;
    uint64_t passes = 0;
};

// Prints the command; false for one that is no command.
bool ShowCommand(const PatchCommand& command, Totals* totals) {
    switch (command.kind) {
        case PatchCommand::COPY:
            printf("copy     offset %10" PRIu32 "  length %10" PRIu32 "\n", command.offset,
                   command.length);
            ++totals->copies;
            totals->copied += command.length;
            return true;
        case PatchCommand::LITERAL:
            printf("literal  from   %10" PRIu64 "  length %10" PRIu32 "\n", command.dataPosition,
                   command.length);
            ++totals->literals;
            totals->literal += command.length;
            return true;
        case PatchCommand::END_OF_PASS:
            printf("end of pass\n");
            ++totals->passes;
            return true;
        default: return false;
    }
}

// Gives what was made its name, which that of one of the files it was made from may be.
ExitStatus Take(const std::string& temporary, const std::string& path) {
    if (rename(temporary.c_str(), path.c_str()) == 0) return EXIT_DONE;
    const ExitStatus status = Problem("cannot write " + SystemError(path));
    unlink(temporary.c_str());
    return status;
}

}  // namespace

ExitStatus Diff(const std::string& from, const std::string& to, const std::string& patch) {
    std::string reason;
    const std::string temporary = patch + ".tmp";
    const DeltaResult result = MakePatch(from, to, temporary, kNoSizeLimit, &reason);
    return result == DeltaResult::MADE ? Take(temporary, patch) : Problem(reason);
}

ExitStatus Apply(const std::string& from, const std::string& patch, const std::string& result) {
    for (const std::string& path : {from, patch}) {
        if (FileSize(path) == -1) return Problem(SystemError(path));
    }
    PatchBuffer patched;
    if (!patched.Load(patch, from)) return Problem(patch + ": cannot be applied to " + from);
    if (patched.Size() == 0) return Problem(patch + ": makes an empty file");
    const std::string temporary = result + ".tmp";
    if (patched.WriteFile(temporary, nullptr)) return Take(temporary, result);
    const ExitStatus status = Problem("cannot write " + SystemError(temporary));
    unlink(temporary.c_str());
    return status;
}

ExitStatus Show(const std::string& path) {
    const Stream patch = OpenForReading(path);
    if (!patch) return Problem(SystemError(path));
    std::string fault;
    if (const auto updater = ReadUpdaterProgram(path, &fault)) {
        printf("name     %s\nversion  %s\n", updater->note[0].c_str(), updater->note[1].c_str());
        for (size_t i = 2; i < updater->note.size(); ++i) {
            printf("host     %s\n", updater->note[i].c_str());
        }
        return EXIT_DONE;
    }
    PatchReader reader(patch.get());
    Totals totals;
    PatchCommand command = reader.Next();
    while (ShowCommand(command, &totals)) command = reader.Next();
    printf("%" PRIu64 " copies of %" PRIu64 " bytes, %" PRIu64 " literals of %" PRIu64
           " bytes, %" PRIu64 " passes; the patch has %" PRIu64 " bytes\n",
           totals.copies, totals.copied, totals.literals, totals.literal, totals.passes,
           reader.Size());
    if (command.kind == PatchCommand::UNKNOWN) {
        char byte[8];
        snprintf(byte, sizeof byte, "%02x", command.byte);
        return Problem(path + ": unknown command " + byte);
    }
    if (command.kind == PatchCommand::TRUNCATED) return Problem(path + ": ends within a command");
    return EXIT_DONE;
}
