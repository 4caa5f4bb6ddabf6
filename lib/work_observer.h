// Long work on files reports to this.
#ifndef HALCYRIX_LIB_WORK_OBSERVER_H
#define HALCYRIX_LIB_WORK_OBSERVER_H

#include <cstdint>
#include <string>

class WorkObserver {
public:
    virtual ~WorkObserver() = default;

    // A step of the work begins, such as "checking". It ends the step before it. All files of the
    // step together have `bytes` bytes.
    virtual void Begin(const char* step, uint64_t bytes) = 0;
    // The step turns to this file.
    virtual void File(const std::string& name) = 0;
    // This many more bytes of the step are done. May be called from any thread at any time.
    virtual void Done(uint64_t bytes) = 0;
};

#endif
