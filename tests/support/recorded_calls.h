#pragma once

#include "support/handed_buffer.h"
#include "support/recorder.h"

namespace quelta::test {

// What the recorded calls of both interfaces share.
class RecordedCalls {
public:
    static constexpr std::nullopt_t null = std::nullopt;

protected:
    using Handle = ULONG_PTR;

    explicit RecordedCalls(Recorder& recorder) : recorder_(recorder) {}

    std::string handle(Handle handle) const { return recorder_.handle(handle); }
    // The first argument of nearly every call, and the others.
    template <class... Words>
    std::string argumentsAfter(Handle first, const Words&... words) const
    {
        return handle(first) + ((", " + std::string(words)) + ... + "");
    }
    // A call that puts a new handle where it is told and says what it answered; 0 if it made none.
    Handle handsOut(const std::string& name, const std::string& arguments, const char* kind,
                    const std::function<std::string(Handle*)>& call);

    Recorder& recorder_;
};

} // namespace quelta::test
