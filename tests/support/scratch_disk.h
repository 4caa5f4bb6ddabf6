// A scratch directory on which flushing costs nothing.
#ifndef HALCYRIX_TESTS_SUPPORT_SCRATCH_DISK_H
#define HALCYRIX_TESTS_SUPPORT_SCRATCH_DISK_H

#include <sys/mount.h>

#include "tests/support/private_network.h"
#include "tests/support/scratch_dir.h"

// In memory where a file system can be mounted. For tests that run many sessions: each flushes its
// records to the disk, and a busy disk would make them wait.
class ScratchDisk : public ScratchDir {
public:
    ScratchDisk() : m_mounted(MountSmallFileSystem(Path().c_str(), kSize)) {
        std::filesystem::current_path(Path());
    }
    ~ScratchDisk() {
        if (m_mounted) umount2(Path().c_str(), MNT_DETACH);
    }

private:
    static constexpr long kSize = 1 << 30;

    bool m_mounted;
};

#endif
