#pragma once

#include "tools/scratch_folder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace quelta::test {

// A folder under the build for one test, gone at its end. Programs under Wine and native ones meet in it.
class WorkFolder : public ScratchFolder {
public:
    WorkFolder();

    // Runs native commands in the folder, up to the first that fails; what they said is the failure's text. $shared is the folder
    // with the keys and certificates of the token; "refuses COMMAND..." fails if the command does not.
    ::testing::AssertionResult shell(const std::string& commands) const;
};

// What make_shared.sh left under the build.
std::filesystem::path sharedFolder();
// The text of a file, without the line's end.
std::string textOfFile(const std::filesystem::path& path);

// Bytes of which no two neighbours are the same.
Bytes patterned(std::size_t size);
Bytes reversed(ByteView bytes);
Bytes bytesOf(std::string_view text);
Bytes joined(Bytes first, ByteView second);

} // namespace quelta::test
