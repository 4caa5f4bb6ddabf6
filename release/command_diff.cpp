#include <unistd.h>

#include <cstdio>
#include <memory>

#include "delta/delta.h"
#include "lib/whole_file.h"
#include "release/commands.h"

namespace {

struct Arguments {
    std::string from;
    std::string to;
    std::string patch;
};

ExitStatus Diff(const Arguments& arguments) {
    std::string reason;
    // By way of a temporary file, since the patch may replace one of the two.
    const std::string temporary = arguments.patch + ".tmp";
    if (MakePatch(arguments.from, arguments.to, temporary, kNoSizeLimit, &reason) !=
        DeltaResult::MADE) {
        return Problem(reason);
    }
    if (rename(temporary.c_str(), arguments.patch.c_str()) == 0) return EXIT_DONE;
    const ExitStatus status = Problem(SystemError(arguments.patch));
    unlink(temporary.c_str());
    return status;
}

}  // namespace

void AddDiffCommand(CLI::App* app, ExitStatus* status) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* command = AddCommand(app, "diff", "Make the patch from one file to another");
    command->add_option("OLD", arguments->from, "The file to start from")->required();
    command->add_option("NEW", arguments->to, "The file to make")->required();
    command->add_option("PATCH", arguments->patch, "Where to write the patch")->required();
    command->callback([arguments, status] { *status = Diff(*arguments); });
}
