// A folder that lives as long as the test.
#pragma once

#include "base/bytes.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace quelta {

class ScratchFolder {
public:
    explicit ScratchFolder(std::filesystem::path path = temporary()) : path_(std::move(path))
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

    std::filesystem::path operator/(const std::filesystem::path& name) const { return path_ / name; }

    std::filesystem::path write(const std::filesystem::path& name, ByteView content) const
    {
        std::ofstream file(path_ / name, std::ios::binary);
        file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
        EXPECT_TRUE(file.flush()) << "can't write " << name;
        return path_ / name;
    }
    Bytes read(const std::filesystem::path& name) const
    {
        std::ifstream file(path_ / name, std::ios::binary);
        EXPECT_TRUE(file) << "there is no " << name;
        return {std::istreambuf_iterator<char>(file), {}};
    }
    std::ptrdiff_t fileCount() const { return std::distance(std::filesystem::directory_iterator(path_), {}); }

private:
    static std::filesystem::path temporary()
    {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        return std::filesystem::temp_directory_path() / (std::string("quelta-") + info->test_suite_name() + '-' + info->name());
    }

    std::filesystem::path path_;
};

} // namespace quelta
