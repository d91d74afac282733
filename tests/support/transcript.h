// Transcripts stand beside the tests: what the scenarios of sign_transcript.cpp recorded is in sign.txt, a section for each. A
// test compares its own and shows what differs. With QUELTA_WRITE_TRANSCRIPTS set the files are written instead.
#pragma once

#include <string>
#include <vector>

namespace quelta::test {

// For the test that runs. Fails it where the section differs, or where the file has sections that no scenario writes.
void expectTranscript(const std::vector<std::string>& recorded);

} // namespace quelta::test
