#include "support/scenario.h"

#include "support/transcript.h"

namespace quelta::test {

void Scenario::TearDown()
{
    expectTranscript(recorder.lines());
}

} // namespace quelta::test
