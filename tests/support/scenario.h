#pragma once

#include "support/machine_registry.h"
#include "support/recorded_calls.h"
#include "support/transcript.h"

namespace quelta::test {

// A test whose calls are recorded and compared with the transcript beside it; see support/transcript.h.
class Scenario : public ModuleTest {
protected:
    void TearDown() override { expectTranscript(recorder.lines()); }

    // Makes a call that prepares the scenario. The call is not recorded, and must return a handle.
    ULONG_PTR silently(const std::function<ULONG_PTR()>& call)
    {
        const Recorder::Pause pause(recorder);
        const ULONG_PTR made = call();
        require(made != 0, "a call that prepares");
        return made;
    }

    // Log level 2, the users' level, keeps transcripts short.
    void errorsAlone() { useLevel(2); }
    void everyLine() { useLevel(3); }
    void useLevel(DWORD level)
    {
        setLogLevel(level);
        recorder.note("log level " + std::to_string(level));
    }

    // Places for an answer.
    static Place room(DWORD size) { return {size, size}; }
    static Place query(DWORD stated = 0) { return {std::nullopt, stated}; }
    static Place nowhere() { return {}; }
    // One variable is length and buffer. Its size is rounded up for a number.
    static Place oneVariable(DWORD size)
    {
        const DWORD aligned = (size + 3) / 4 * 4;
        return {aligned, aligned, true};
    }

    Recorder recorder{token, log, user};
};

} // namespace quelta::test
