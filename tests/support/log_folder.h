#pragma once

#include "support/scratch_folder.h"

#include <ostream>
#include <string>
#include <vector>

namespace quelta::test {

struct LogLine {
    std::string tag;
    std::string text;

    friend bool operator==(const LogLine&, const LogLine&) = default;
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line) { return out << line.tag << line.text; }
};

inline LogLine debug(std::string text)
{
    return {"DEBUG ::=>", std::move(text)};
}
inline LogLine error(std::string text)
{
    return {"ERROR ::=>", std::move(text)};
}

// A temporary folder of the test's own. This process uses it as its temporary folder. The folders of the log are there.
class LogFolder : public ScratchFolder {
public:
    LogFolder();
    ~LogFolder();

    // Returns today's file of this process.
    std::filesystem::path file() const;

    // Returns the text that was added to today's file since the last call.
    std::string takeText();
    // Returns the same as lines, without the two lines that the device monitor writes at any time.
    std::vector<LogLine> takeLines();
    void forget() { takeText(); }

private:
    const std::filesystem::path oldTmp_ = std::filesystem::temp_directory_path();
    std::streamoff seen_ = 0;
};

} // namespace quelta::test
