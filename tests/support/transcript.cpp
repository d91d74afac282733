#include "support/transcript.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

namespace quelta::test {

namespace {

using Lines = std::vector<std::string>;
using Sections = std::map<std::string, Lines>;

constexpr std::string_view titleMark = "== ";

bool isUpper(char character)
{
    return std::isupper(static_cast<unsigned char>(character)) != 0;
}

bool isLower(char character)
{
    return std::islower(static_cast<unsigned char>(character)) != 0;
}

// "ThePINIsAskedForAgain" is "The PIN is asked for again".
std::string titleOf(std::string_view testName)
{
    std::string title;
    for (std::size_t i = 0; i < testName.size(); ++i) {
        const auto upperAt = [&](std::size_t at) { return at < testName.size() && isUpper(testName[at]); };
        const bool endsWord = i + 1 < testName.size() && !upperAt(i + 1);
        const bool afterLower = i > 0 && isLower(testName[i - 1]);
        const bool begins = i > 0 && !isLower(testName[i]) && (afterLower || (upperAt(i) && endsWord));
        const bool isArticle = begins && upperAt(i + 1) && i + 2 < testName.size() && !upperAt(i + 2);
        if (begins) title += ' ';
        const bool lower = begins && (endsWord || isArticle);
        title += lower ? static_cast<char>(std::tolower(static_cast<unsigned char>(testName[i]))) : testName[i];
    }
    return title;
}

// Beside the source of the test that runs.
std::filesystem::path fileOfTest()
{
    std::string source = ::testing::UnitTest::GetInstance()->current_test_info()->file();
    std::ranges::replace(source, '\\', '/');
    const std::string mark = "tests/";
    source = source.substr(source.rfind(mark) + mark.size());
    return std::filesystem::path(QUELTA_TESTS_DIR) / (source.substr(0, source.rfind("_transcript.cpp")) + ".txt");
}

// In the order in which they stand in the source.
Lines titlesOfSuite()
{
    const auto& suite = *::testing::UnitTest::GetInstance()->current_test_suite();
    Lines titles;
    for (int i = 0; i < suite.total_test_count(); ++i) titles.push_back(titleOf(suite.GetTestInfo(i)->name()));
    return titles;
}

Sections read(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    Sections sections;
    Lines* current = nullptr;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(titleMark)) {
            current = &sections[line.substr(titleMark.size())];
        } else if (current && !line.empty()) {
            current->push_back(line);
        }
    }
    return sections;
}

void write(const std::filesystem::path& path, const Sections& sections, const Lines& titles)
{
    std::ofstream stream(path, std::ios::binary);
    for (const auto& title : titles) {
        const auto found = sections.find(title);
        if (found == sections.end()) continue;
        if (stream.tellp() > 0) stream << '\n';
        stream << titleMark << title << '\n';
        for (const auto& line : found->second) stream << line << '\n';
    }
    if (!stream.flush()) ADD_FAILURE() << "Can't write " << path;
}

// longest[i][j]: the length of the longest common subsequence of what follows expected[i] and actual[j].
std::vector<Lines::size_type> commonLengths(const Lines& expected, const Lines& actual)
{
    const std::size_t width = actual.size() + 1;
    std::vector<Lines::size_type> longest((expected.size() + 1) * width);
    for (std::size_t i = expected.size(); i-- > 0;) {
        for (std::size_t j = actual.size(); j-- > 0;) {
            const std::size_t at = i * width + j;
            longest[at] = expected[i] == actual[j] ? longest[at + width + 1] + 1 : std::max(longest[at + width], longest[at + 1]);
        }
    }
    return longest;
}

Lines allLinesOfDiff(const Lines& expected, const Lines& actual)
{
    const auto longest = commonLengths(expected, actual);
    const std::size_t width = actual.size() + 1;
    Lines diff;
    std::size_t i = 0, j = 0;
    while (i < expected.size() || j < actual.size()) {
        if (i < expected.size() && j < actual.size() && expected[i] == actual[j]) {
            diff.push_back(" " + expected[i++]);
            ++j;
        } else if (j == actual.size() || (i < expected.size() && longest[(i + 1) * width + j] >= longest[i * width + j + 1])) {
            diff.push_back("-" + expected[i++]);
        } else {
            diff.push_back("+" + actual[j++]);
        }
    }
    return diff;
}

bool isChange(const std::string& line)
{
    return line.front() != ' ';
}

} // namespace

std::string unifiedDiff(const Lines& expected, const Lines& actual)
{
    constexpr std::ptrdiff_t context = 3;
    const Lines all = allLinesOfDiff(expected, actual);
    std::string text;
    bool shown = true;
    for (auto line = all.begin(); line != all.end(); ++line) {
        const auto from = line - std::min(context, line - all.begin());
        const auto to = line + std::min(context + 1, all.end() - line);
        const bool isClose = std::any_of(from, to, isChange);
        if (isClose && !shown) text += "@@\n";
        if (isClose) text += *line + "\n";
        shown = isClose;
    }
    return text;
}

void expectTranscript(const Lines& recorded)
{
    const auto path = fileOfTest();
    const std::string title = titleOf(::testing::UnitTest::GetInstance()->current_test_info()->name());
    const Lines titles = titlesOfSuite();
    Sections sections = read(path);
    if (std::getenv("QUELTA_WRITE_TRANSCRIPTS")) {
        if (std::getenv("CI")) ADD_FAILURE() << "Transcripts are compared here, not written";
        sections[title] = recorded;
        write(path, sections, titles);
        return;
    }
    if (const auto diff = unifiedDiff(sections[title], recorded); !diff.empty()) {
        ADD_FAILURE() << "--- " << path.string() << "\n+++ recorded\n== " << title << "\n"
                      << diff << "If the new text is what is wanted: QUELTA_WRITE_TRANSCRIPTS=1 ./test.sh -R Transcript";
    }
    for (const auto& [stale, lines] : sections) {
        if (std::ranges::find(titles, stale) == titles.end()) ADD_FAILURE() << path << " has a section of no scenario: " << stale;
    }
}

} // namespace quelta::test
