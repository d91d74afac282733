#include "common/text.h"
#include "tools/commands/command_line.h"
#include "tools/console/console.h"
#include "tools/console/files.h"
#include "tools/console/provider_log.h"

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) texts.push_back(quelta::toUtf8(arguments[i]));
    quelta::tools::keepStandardOutput();
    quelta::tools::rememberLogEnd();
    quelta::tools::stopOnInterrupt();
    return quelta::tools::runCommandLine(std::move(texts));
}
