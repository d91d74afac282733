#include "support/scenario.h"

#include "support/machine_registry.h"
#include "support/transcript.h"

namespace quelta::test {

void Scenario::TearDown()
{
    expectTranscript(recorder.lines());
}

void Scenario::useLevel(DWORD level)
{
    setLogLevel(level);
    recorder.note("log level " + std::to_string(level));
}

} // namespace quelta::test
