#pragma once

#include "support/handed_buffer.h"
#include "support/recorder.h"

namespace quelta::test {

// A test whose calls are recorded and compared with the transcript beside it; see support/transcript.h. Its name is the title.
class Scenario : public ModuleTest {
protected:
    void TearDown() override;

    // At log level 2, which is the one that users have, transcripts are short.
    void errorsAlone() { useLevel(2); }
    void everyLine() { useLevel(3); }

    // Where an answer is wanted.
    static Place room(DWORD size) { return {size, size}; }
    static Place query(DWORD stated = 0) { return {std::nullopt, stated}; }
    static Place nowhere() { return {}; }
    static Place withoutLength(DWORD size) { return {size, std::nullopt}; }

    Recorder recorder{token, log, user};

private:
    void useLevel(DWORD level);
};

} // namespace quelta::test
