#pragma once

#include "log/bytes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace quelta::test {

// A folder under the build for one test, gone at its end. Programs under Wine and native ones meet in it.
class WorkFolder {
public:
    WorkFolder();
    ~WorkFolder();
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    void write(const std::string& name, ByteView content) const;
    Bytes read(const std::string& name) const;

    // Runs native commands in the folder, up to the first that fails; what they said is the failure's text. $shared is the folder
    // with the keys and certificates of the token; "refuses COMMAND..." fails if the command does not.
    ::testing::AssertionResult shell(const std::string& commands) const;

private:
    std::filesystem::path path_;
};

// What make_shared.sh left under the build.
std::filesystem::path sharedFolder();
// The text of a file, without the line's end.
std::string textOfFile(const std::filesystem::path& path);

Bytes reversed(ByteView bytes);
Bytes bytesOf(std::string_view text);

} // namespace quelta::test
