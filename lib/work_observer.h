// Long work on files reports to this. Calls come from any thread.
#pragma once

#include <cstdint>
#include <string>

class WorkObserver {
public:
    virtual ~WorkObserver() = default;

    // A step of the work begins, such as "checking". It ends the step before it. All files of the
    // step together have `bytes` bytes.
    virtual void Begin(const char* /*step*/, uint64_t /*bytes*/) {}
    // The step turns to this file.
    virtual void File(const std::string& /*name*/) {}
    // This many more bytes of the step are done. Must be cheap.
    virtual void Done(uint64_t /*bytes*/) {}
    // Something that the user should look at, while the work goes on.
    virtual void Warn(const std::string& /*text*/) {}
};
