#include "support/transcript.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>

namespace quelta::test {

namespace {

using Lines = std::vector<std::string>;
using Sections = std::map<std::string, Lines>;

constexpr std::string_view titleMark = "== ";

// Beside the source of the test that runs.
std::filesystem::path fileOfTest()
{
    const std::string source = ::testing::UnitTest::GetInstance()->current_test_info()->file();
    return source.substr(0, source.rfind("_transcript.cpp")) + ".txt";
}

// In the order in which they stand in the source.
Lines titlesOfSuite()
{
    const auto& suite = *::testing::UnitTest::GetInstance()->current_test_suite();
    Lines titles;
    for (int i = 0; i < suite.total_test_count(); ++i) titles.emplace_back(suite.GetTestInfo(i)->name());
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

} // namespace

void expectTranscript(const Lines& recorded)
{
    const auto path = fileOfTest();
    const std::string title = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    const Lines titles = titlesOfSuite();
    Sections sections = read(path);
    if (std::getenv("QUELTA_WRITE_TRANSCRIPTS")) {
        if (std::getenv("CI")) ADD_FAILURE() << "Transcripts are compared here, not written";
        sections[title] = recorded;
        write(path, sections, titles);
        return;
    }
    if (sections[title] != recorded) {
        ADD_FAILURE() << "--- " << path.string() << "\n+++ recorded\n== " << title << "\n"
                      << ::testing::internal::edit_distance::CreateUnifiedDiff(sections[title], recorded, 3)
                      << "If the new text is what is wanted: QUELTA_WRITE_TRANSCRIPTS=1 ./test.sh -R Transcript";
    }
    for (const auto& [stale, lines] : sections) {
        if (std::ranges::find(titles, stale) == titles.end()) ADD_FAILURE() << path << " has a section of no scenario: " << stale;
    }
}

} // namespace quelta::test
