#include "command_line.h"
#include "common/text.h"
#include "console.h"
#include "files.h"
#include "provider_log.h"

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) texts.push_back(quelta::toUtf8(arguments[i]));
    quelta::tools::keepStandardOutput();
    quelta::tools::rememberLogEnd();
    quelta::tools::stopOnInterrupt();
    return quelta::tools::runCommandLine(std::move(texts));
}
