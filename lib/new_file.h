// A file that appears under its name only when it is complete.
#pragma once

#include <string>
#include <utility>

// Written under a name of its own beside the wanted one, which it gets when it is complete. So the
// wanted name may be that of a file that it is made from. Removed when it was not finished.
class NewFile {
public:
    explicit NewFile(std::string path) : m_path(std::move(path)) {}
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    // Creates an empty file. False where something else than a regular file has the wanted name.
    [[nodiscard]] bool Create(std::string* error);
    // The path to write to.
    const std::string& Temporary() const { return m_temporary; }
    // Gives the file its name.
    [[nodiscard]] bool Finish(std::string* error);

private:
    const std::string m_path;
    std::string m_temporary;  // empty when there is none
};
