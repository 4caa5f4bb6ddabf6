#include "app/programs.h"

#include <elf.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "app/browser.h"
#include "app/home.h"
#include "lib/stream.h"

namespace {

bool read_at(FILE* file, uint64_t offset, void* data, size_t length) {
    return fseeko(file, static_cast<off_t>(offset), SEEK_SET) == 0 &&
           fread(data, 1, length, file) == length;
}

// Whether all is there that the system loads. Sections are not, and may be gone.
template <class Header, class Segment>
bool loads_whole(FILE* file, uint64_t size) {
    Header header;
    if (!read_at(file, 0, &header, sizeof header)) return false;
    for (uint64_t i = 0; i < header.e_phnum; ++i) {
        Segment segment;
        if (!read_at(file, header.e_phoff + i * header.e_phentsize, &segment, sizeof segment)) {
            return false;
        }
        if (segment.p_type != PT_LOAD || segment.p_filesz == 0) continue;
        if (segment.p_offset > size || segment.p_filesz > size - segment.p_offset) return false;
    }
    return true;
}

}  // namespace

void prepare_process() {
    // Started without standard streams, the connection to the display would become one of them, and
    // the first warning would be written into it.
    int fd;
    do {
        fd = open("/dev/null", O_RDWR);
    } while (fd >= 0 && fd <= STDERR_FILENO);
    if (fd >= 0) close(fd);

    signal(SIGCHLD, sighandler);
    signal(SIGPIPE, SIG_IGN);
    signal(SIGXFSZ, SIG_IGN);  // a limit on the size of files is an error of the write
}

void become(const char* path, std::initializer_list<const char*> arguments) {
    std::vector<char*> pointers;
    for (const char* argument : arguments) pointers.push_back(const_cast<char*>(argument));
    pointers.push_back(nullptr);
    // First, so that what came while it was blocked is still ignored.
    sigset_t none, blocked;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, &blocked);
    // The system itself sets signals that have a handler, as SIGCHLD does, to their defaults.
    const auto pipeHandler = signal(SIGPIPE, SIG_DFL);
    const auto sizeHandler = signal(SIGXFSZ, SIG_DFL);
    execv(path, pointers.data());
    signal(SIGXFSZ, sizeHandler);
    signal(SIGPIPE, pipeHandler);
    sigprocmask(SIG_SETMASK, &blocked, nullptr);
}

bool is_updater_copy_name(const char* startName) {
    return startName != nullptr && std::string_view(startName).ends_with(kUpdaterCopyName);
}

bool is_truncated_elf(const std::string& path) {
    const Stream file = OpenForReading(path);
    if (!file) return false;
    const auto size = static_cast<uint64_t>(StreamSize(file.get()));

    unsigned char ident[EI_NIDENT] = {};
    const size_t got = fread(ident, 1, sizeof ident, file.get());
    if (memcmp(ident, ELFMAG, std::min<size_t>(got, SELFMAG)) != 0) return false;
    if (got < sizeof ident) return true;
    if (ident[EI_DATA] != ELFDATA2LSB) return false;  // no program of this machine
    if (ident[EI_CLASS] == ELFCLASS64)
        return !loads_whole<Elf64_Ehdr, Elf64_Phdr>(file.get(), size);
    if (ident[EI_CLASS] == ELFCLASS32)
        return !loads_whole<Elf32_Ehdr, Elf32_Phdr>(file.get(), size);
    return false;
}

void start_updater_copy(const std::string& path, const char* argument) {
    chmod(path.c_str(), kProgramMode);
    // A cut-off copy would crash at every start, and no session could ever repair it.
    if (!is_truncated_elf(path)) become(path.c_str(), {kUpdaterCopyName, argument});
}

void hand_off() {
    const std::string path = game_home() + "/" + kUpdaterCopyName;
    if (access(path.c_str(), F_OK) == 0) start_updater_copy(path, nullptr);
}
