#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "delta/delta.h"
#include "delta/threads.h"
#include "lib/failure.h"
#include "lib/file_helpers.h"
#include "lib/file_progress.h"
#include "lib/new_file.h"
#include "lib/patch_buffer.h"
#include "lib/patch_reader.h"
#include "lib/stream.h"
#include "release/commands.h"
#include "release/progress_line.h"
#include "store/updater_program.h"

ExitStatus Diff(const std::string& from, const std::string& to, const std::string& patch,
                size_t jobs) {
    NewFile made(patch);
    std::string reason;
    if (!made.Create(&reason)) return Problem(reason);
    ProgressLine progress;
    progress.Begin("comparing", static_cast<uint64_t>(std::max<int64_t>(FileSize(to), 0)));
    progress.File(to);
    const PatchOptions options{.threads = ThreadsFor(jobs), .observer = &progress};
    const DeltaResult result = MakePatch(from, to, made.Temporary(), options, &reason);
    progress.End();
    const bool finished = result == DeltaResult::MADE && made.Finish(&reason);
    return finished ? EXIT_DONE : Problem(reason);
}

ExitStatus Apply(const std::string& from, const std::string& patch, const std::string& result) {
    for (const std::string& path : {from, patch}) {
        if (FileSize(path) == -1) return Problem(SystemError(path));
    }
    PatchBuffer patched;
    if (!patched.Load(patch, from)) return Problem(patch + ": cannot be applied to " + from);
    if (patched.Size() == 0) return Problem(patch + ": makes an empty file");
    NewFile made(result);
    std::string error;
    if (!made.Create(&error)) return Problem(error);
    ProgressLine progress;
    progress.Begin("writing", static_cast<uint64_t>(patched.Size()));
    FileProgress file(&progress, result, static_cast<uint64_t>(patched.Size()));
    const bool written = patched.WriteFile(made.Temporary(), &file);
    progress.End();
    if (!written) return Problem("cannot write " + SystemError(result));
    return made.Finish(&error) ? EXIT_DONE : Problem(error);
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
    uint64_t commands[3] = {}, bytes[3] = {};  // by kind
    PatchCommand command = reader.Next();
    for (; command.kind <= PatchCommand::END_OF_PASS; command = reader.Next()) {
        ++commands[command.kind];
        bytes[command.kind] += command.length;
        if (command.kind == PatchCommand::COPY) {
            printf("copy     offset %10" PRIu32 "  length %10" PRIu32 "\n", command.offset,
                   command.length);
        } else if (command.kind == PatchCommand::LITERAL) {
            printf("literal  from   %10" PRIu64 "  length %10" PRIu32 "\n", command.dataPosition,
                   command.length);
        } else {
            printf("end of pass\n");
        }
    }
    printf("%" PRIu64 " copies of %" PRIu64 " bytes, %" PRIu64 " literals of %" PRIu64
           " bytes, %" PRIu64 " passes; the patch has %" PRIu64 " bytes\n",
           commands[PatchCommand::COPY], bytes[PatchCommand::COPY], commands[PatchCommand::LITERAL],
           bytes[PatchCommand::LITERAL], commands[PatchCommand::END_OF_PASS], reader.Size());
    if (command.kind == PatchCommand::UNKNOWN) {
        char byte[8];
        snprintf(byte, sizeof byte, "%02x", command.byte);
        return Problem(path + ": unknown command " + byte);
    }
    if (command.kind == PatchCommand::TRUNCATED) return Problem(path + ": ends within a command");
    return EXIT_DONE;
}
