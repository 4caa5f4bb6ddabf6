// A disk that fills up.
#ifndef HALCYRIX_TESTS_SUPPORT_SMALL_DISK_H
#define HALCYRIX_TESTS_SUPPORT_SMALL_DISK_H

#include <sys/resource.h>

#include <string>

// Makes an empty directory at `path` that holds no more than kSize bytes of files. Where no file
// system can be mounted, no single file can grow beyond kSize instead.
class SmallDisk {
public:
    static constexpr size_t kSize = 65536;

    explicit SmallDisk(const std::string& path);
    ~SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

private:
    std::string m_path;
    bool m_mounted;
    rlimit m_limit{};  // before, when not mounted
};

#endif
