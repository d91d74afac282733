// A folder that lives as long as the test.
#pragma once

#include "base/bytes.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace quelta {

inline Bytes contentOf(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file) << "there is no " << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

class ScratchFolder {
public:
    explicit ScratchFolder(const std::filesystem::path& within = std::filesystem::temp_directory_path())
        : path_(within / ("quelta-" + std::to_string(GetCurrentProcessId()) + '-' + std::to_string(++count_)))
    {
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

    std::filesystem::path write(const std::filesystem::path& name, ByteView content) const
    {
        std::ofstream file(path_ / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
        EXPECT_TRUE(file.flush()) << "can't write " << name;
        return path_ / name;
    }
    Bytes read(const std::filesystem::path& name) const { return contentOf(path_ / name); }
    std::ptrdiff_t fileCount() const { return std::distance(std::filesystem::directory_iterator(path_), {}); }

private:
    static inline int count_ = 0;

    std::filesystem::path path_;
};

} // namespace quelta
