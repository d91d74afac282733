// Transcripts stand beside the tests: sign.txt has a section for each scenario of sign_transcript.cpp. A test compares its record
// with its section and shows the difference. If QUELTA_WRITE_TRANSCRIPTS is set, the test writes the section instead.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quelta::test {

// Fails the running test if its section differs from the record. A new section is written at the end of the file.
void expectTranscript(const std::vector<std::string>& recorded);

// A test of this fixture. Its name is a plain sentence, which is also the section's title.
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
