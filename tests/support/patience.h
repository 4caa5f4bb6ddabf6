// An end to every wait.
#ifndef HALCYRIX_TESTS_SUPPORT_PATIENCE_H
#define HALCYRIX_TESTS_SUPPORT_PATIENCE_H

#include <string>

// While one lives, the process may wait this long for what its name says; then it ends with a
// failure that tells it. A shorter one may live inside a longer one. Every test begins with one of
// 30 seconds for itself; a campaign of many sessions gives itself more.
class Patience {
public:
    explicit Patience(const std::string& what, unsigned seconds = 10);
    ~Patience();
    Patience(const Patience&) = delete;
    Patience& operator=(const Patience&) = delete;

private:
    std::string m_outer;
    unsigned m_left;  // seconds of the outer one
};

#endif
