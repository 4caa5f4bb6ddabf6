#include <unistd.h>

#include <cstdio>
#include <memory>

#include "lib/patch_buffer.h"
#include "lib/whole_file.h"
#include "release/commands.h"

namespace {

struct Arguments {
    std::string from;
    std::string patch;
    std::string result;
};

ExitStatus Apply(const Arguments& arguments) {
    PatchBuffer patched;
    if (!patched.Load(arguments.patch, arguments.from)) {
        return Problem(arguments.patch + ": cannot be applied to " + arguments.from);
    }
    if (patched.Size() == 0) return Problem(arguments.patch + ": makes an empty file");
    const std::string temporary = arguments.result + ".tmp";
    if (patched.WriteFile(temporary, nullptr) &&
        rename(temporary.c_str(), arguments.result.c_str()) == 0) {
        return EXIT_DONE;
    }
    const ExitStatus status = Problem("cannot write " + SystemError(arguments.result));
    unlink(temporary.c_str());
    return status;
}

}  // namespace

void AddApplyCommand(CLI::App* app, ExitStatus* status) {
    const auto arguments = std::make_shared<Arguments>();
    CLI::App* command = AddCommand(app, "apply", "Apply a patch as the updater would");
    command->add_option("OLD", arguments->from, "The file to start from")->required();
    command->add_option("PATCH", arguments->patch, "The patch")->required();
    command->add_option("RESULT", arguments->result, "Where to write the new file")->required();
    command->callback([arguments, status] { *status = Apply(*arguments); });
}
