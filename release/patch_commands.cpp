#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "delta/delta.h"
#include "delta/threads.h"
#include "lib/failure.h"
#include "lib/file_helpers.h"
#include "lib/patch_buffer.h"
#include "lib/patch_reader.h"
#include "lib/stream.h"
#include "release/commands.h"
#include "release/progress_line.h"
#include "store/file_progress.h"
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

// A file that is written under a name of its own and gets the wanted one when it is complete. That
// may be the name of a file it is made from.
class NewFile {
public:
    explicit NewFile(std::string path) : m_path(std::move(path)) {}
    ~NewFile() {
        if (!m_temporary.empty()) unlink(m_temporary.c_str());
    }

    // False after telling the problem, such as a device of that name.
    bool Create() {
        struct stat status;
        if (lstat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
            Problem(m_path + ": is there and no regular file");
            return false;
        }
        std::string name = m_path + ".XXXXXX";
        const int file = mkstemp(name.data());
        if (file == -1) {
            Problem("cannot write " + SystemError(m_path));
            return false;
        }
        m_temporary = name;
        const mode_t mask = umask(0);
        umask(mask);
        fchmod(file, 0666 & ~mask);
        close(file);
        return true;
    }

    const std::string& Temporary() const { return m_temporary; }

    ExitStatus Finish() {
        if (rename(m_temporary.c_str(), m_path.c_str()) != 0) {
            return Problem("cannot write " + SystemError(m_path));
        }
        m_temporary.clear();
        return EXIT_DONE;
    }

private:
    const std::string m_path;
    std::string m_temporary;  // empty when there is none
};

}  // namespace

ExitStatus Diff(const std::string& from, const std::string& to, const std::string& patch,
                size_t jobs) {
    NewFile made(patch);
    if (!made.Create()) return EXIT_PROBLEM;
    std::string reason;
    ProgressLine progress;
    progress.Begin("comparing", static_cast<uint64_t>(std::max<int64_t>(FileSize(to), 0)));
    progress.File(to);
    const PatchOptions options{.threads = ThreadsFor(jobs), .observer = &progress};
    const DeltaResult result = MakePatch(from, to, made.Temporary(), options, &reason);
    progress.End();
    return result == DeltaResult::MADE ? made.Finish() : Problem(reason);
}

ExitStatus Apply(const std::string& from, const std::string& patch, const std::string& result) {
    for (const std::string& path : {from, patch}) {
        if (FileSize(path) == -1) return Problem(SystemError(path));
    }
    PatchBuffer patched;
    if (!patched.Load(patch, from)) return Problem(patch + ": cannot be applied to " + from);
    if (patched.Size() == 0) return Problem(patch + ": makes an empty file");
    NewFile made(result);
    if (!made.Create()) return EXIT_PROBLEM;
    ProgressLine progress;
    progress.Begin("writing", static_cast<uint64_t>(patched.Size()));
    FileProgress file(&progress, result, static_cast<uint64_t>(patched.Size()));
    const bool written = patched.WriteFile(made.Temporary(), &file);
    progress.End();
    return written ? made.Finish() : Problem("cannot write " + SystemError(result));
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
