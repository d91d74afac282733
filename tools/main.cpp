#include "command_line.h"
#include "files.h"
#include "text.h"

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) texts.push_back(quelta::utf8(arguments[i]));
    quelta::stopOnInterrupt();
    return quelta::runCommandLine(std::move(texts));
}
