#include "tests/support/private_network.h"

#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

bool WriteLine(const char* path, const std::string& line) {
    const int fd = open(path, O_WRONLY | O_CLOEXEC);
    if (fd == -1) return false;
    const bool written = write(fd, line.data(), line.size()) == static_cast<ssize_t>(line.size());
    close(fd);
    return written;
}

bool Unshare() {
    if (unshare(CLONE_NEWNET | CLONE_NEWNS) == 0) return true;
    const std::string uid = std::to_string(getuid());
    const std::string gid = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS) != 0) return false;
    WriteLine("/proc/self/setgroups", "deny");
    return WriteLine("/proc/self/uid_map", "0 " + uid + " 1") &&
           WriteLine("/proc/self/gid_map", "0 " + gid + " 1");
}

bool RaiseLoopback() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP | IFF_RUNNING;
    const bool raised = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
    close(fd);
    return raised;
}

void WaitForSharedPorts() {
    const char* path = "/tmp/halcyrix-test-ports.lock";
    // Another user's file can be opened for reading at most. Deliberately left open: the lock ends
    // with the process.
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd == -1) fd = open(path, O_CREAT | O_RDONLY | O_CLOEXEC, 0666);
    if (fd != -1) flock(fd, LOCK_EX);
}

}  // namespace

bool EnterPrivateNetwork() {
    if (Unshare() && RaiseLoopback() &&
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
        return true;
    }
    printf("No namespaces here: sharing the machine's ports with other tests in turn.\n");
    WaitForSharedPorts();
    return false;
}

bool MountSmallFileSystem(const char* path, long bytes) {
    const std::string options = "size=" + std::to_string(bytes);
    return mount("tmpfs", path, "tmpfs", 0, options.c_str()) == 0;
}
