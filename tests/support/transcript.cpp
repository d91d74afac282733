#include "support/transcript.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace quelta::test {

namespace {

using Lines = std::vector<std::string>;
using Section = std::pair<std::string, Lines>;

constexpr std::string_view titleMark = "== ";

// Returns the file beside the source of the running test.
std::filesystem::path fileOfTest()
{
    const std::string source = ::testing::UnitTest::GetInstance()->current_test_info()->file();
    return source.substr(0, source.rfind("_transcript.cpp")) + ".txt";
}

std::vector<Section> read(const std::filesystem::path& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::vector<Section> sections;
    for (std::string line; std::getline(stream, line);) {
        if (line.starts_with(titleMark)) {
            sections.emplace_back(line.substr(titleMark.size()), Lines());
        } else if (!line.empty()) {
            sections.back().second.push_back(line);
        }
    }
    return sections;
}

void write(const std::filesystem::path& path, const std::vector<Section>& sections)
{
    std::ofstream stream(path, std::ios::binary);
    for (const auto& [title, lines] : sections) {
        if (stream.tellp() > 0) stream << '\n';
        stream << titleMark << title << '\n';
        for (const auto& line : lines) stream << line << '\n';
    }
    if (!stream.flush()) ADD_FAILURE() << "Can't write " << path;
}

} // namespace

void expectTranscript(const Lines& recorded)
{
    const auto path = fileOfTest();
    const std::string title = ::testing::UnitTest::GetInstance()->current_test_info()->name();
    auto sections = read(path);
    auto section = std::ranges::find(sections, title, &Section::first);
    if (section == sections.end()) section = sections.insert(section, {title, {}});
    if (std::getenv("QUELTA_WRITE_TRANSCRIPTS")) {
        if (std::getenv("CI")) ADD_FAILURE() << "Transcripts are compared here, not written";
        section->second = recorded;
        write(path, sections);
    } else if (section->second != recorded) {
        ADD_FAILURE() << "--- " << path.string() << "\n+++ recorded\n== " << title << "\n"
                      << ::testing::internal::edit_distance::CreateUnifiedDiff(section->second, recorded, 3)
                      << "If the new text is what is wanted: QUELTA_WRITE_TRANSCRIPTS=1 ./test.sh -R Transcript";
    }
}

} // namespace quelta::test
