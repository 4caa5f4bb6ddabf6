#include "lib/new_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "lib/failure.h"

NewFile::~NewFile() {
    if (!m_temporary.empty()) unlink(m_temporary.c_str());
}

bool NewFile::Create(std::string* error) {
    struct stat status;
    if (lstat(m_path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return Fail(error, m_path + ": is there and no regular file");
    }
    std::string name = m_path + ".XXXXXX";
    const int file = mkstemp(name.data());
    if (file == -1) return Fail(error, "cannot write " + SystemError(m_path));
    m_temporary = name;
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(file, 0666 & ~mask);
    close(file);
    return true;
}

bool NewFile::Finish(std::string* error) {
    if (rename(m_temporary.c_str(), m_path.c_str()) != 0) {
        return Fail(error, "cannot write " + SystemError(m_path));
    }
    m_temporary.clear();
    return true;
}
