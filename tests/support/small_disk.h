// A disk that fills up.
#ifndef HALCYRIX_TESTS_SUPPORT_SMALL_DISK_H
#define HALCYRIX_TESTS_SUPPORT_SMALL_DISK_H

#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "tests/support/private_network.h"

// Makes an empty directory at `path` that holds no more than kSize bytes of files. Where no file
// system can be mounted, no single file can grow beyond kSize instead.
class SmallDisk {
public:
    static constexpr size_t kSize = 65536;

    explicit SmallDisk(const char* path) : m_path(std::filesystem::absolute(path)) {
        std::filesystem::create_directory(path);
        if (!MountSmallFileSystem(path, kSize)) LimitFiles(kSize);
    }
    ~SmallDisk() {
        umount2(m_path.c_str(), MNT_DETACH);
        LimitFiles(RLIM_INFINITY);
    }
    SmallDisk(const SmallDisk&) = delete;

private:
    static void LimitFiles(rlim_t size) {
        signal(SIGXFSZ, SIG_IGN);
        rlimit limit;
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = std::min(size, limit.rlim_max);
        setrlimit(RLIMIT_FSIZE, &limit);
    }

    std::filesystem::path m_path;
};

#endif
