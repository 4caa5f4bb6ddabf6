#include "tests/support/small_disk.h"

#include <sys/mount.h>

#include <csignal>
#include <filesystem>

#include "tests/support/private_network.h"

namespace fs = std::filesystem;

SmallDisk::SmallDisk(const std::string& path) {
    fs::create_directory(path);
    m_path = fs::absolute(path).string();
    m_mounted = MountSmallFileSystem(m_path.c_str(), kSize);
    if (m_mounted) return;
    signal(SIGXFSZ, SIG_IGN);
    getrlimit(RLIMIT_FSIZE, &m_limit);
    const rlimit lower{kSize, m_limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &lower);
}

SmallDisk::~SmallDisk() {
    if (m_mounted) {
        umount2(m_path.c_str(), MNT_DETACH);
    } else {
        setrlimit(RLIMIT_FSIZE, &m_limit);
    }
}
