// Transcripts stand beside the tests: what the scenarios of sign_transcript.cpp recorded is in sign.txt, a section for each. A
// test compares its own and shows what differs. With QUELTA_WRITE_TRANSCRIPTS set the files are written instead.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quelta::test {

// Fails the running test if its section differs from the record. A new section is written at the end of the file.
void expectTranscript(const std::vector<std::string>& recorded);

// A test of this fixture whose name is a plain sentence, which is the section's title, too.
// NOLINTBEGIN(bugprone-macro-parentheses): a base class takes none
#define TRANSCRIPT(fixture, title) QUELTA_TRANSCRIPT_AT(fixture, title, __LINE__)
#define QUELTA_TRANSCRIPT_AT(fixture, title, line) QUELTA_TRANSCRIPT(fixture, title, line)
#define QUELTA_TRANSCRIPT(fixture, title, line)                                                                                  \
    class fixture##line : public fixture {                                                                                       \
        void TestBody() override;                                                                                                \
    };                                                                                                                           \
    [[maybe_unused]] static const auto* const registered##line = ::testing::RegisterTest(                                        \
        #fixture, title, nullptr, nullptr, __FILE__, line, []() -> fixture* { return new fixture##line; });                      \
    void fixture##line::TestBody()
// NOLINTEND(bugprone-macro-parentheses)

} // namespace quelta::test
