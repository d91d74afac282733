#include "failure.h"

#include "base/provider_name.h"
#include "base/table.h"
#include "base/text.h"

#include <windows.h>

#include <cstdio>
#include <iterator>

namespace quelta::tools {

namespace {

struct Advice {
    unsigned long code;
    std::string_view text;
};

// Followed by where that is.
constexpr std::string_view notRegistered =
    "the provider is not registered; write its Image Path, Type and Signature under HKLM\\";
constexpr auto noToken = "no token found; plug it in and try again";
constexpr auto wrongPin = "the token refused the PIN: it is wrong, and each wrong try uses up an attempt, or the token is locked";

constexpr Advice adviceByCode[] = {
    {0x80090017, notRegistered},
    {0x80090019, notRegistered},
    {0x8009001E, "the provider's DLL is not where the registry says; correct its Image Path"},
    {0x8009001D,
     "the provider can't be loaded, or its token failed; check its Image Path in the registry, that QueltaDSCLibrary.dll is "
     "beside this program or in the system's folder, and the provider's log"},
    {0x80090023, noToken},
    {0x80090035, noToken},
    {0x8009001A, wrongPin},
    {0x80090032, wrongPin},
    {0x80090020, "the PIN was not entered or not accepted; try again, or give it with --pin"},
    {0x8009002D, "the token refused; is it still plugged in, and is this the right key? The provider's log has the reason"},
    {0x8009000D, "the token has no such key; leave --container out to let the tool choose one"},
    {ERROR_FILE_NOT_FOUND, "there is no such file; check the name"},
    {ERROR_PATH_NOT_FOUND, "there is no such folder; check the name, or make the folder first"},
    {ERROR_ACCESS_DENIED, "access denied; check its permissions, and that it is no folder"},
    {ERROR_SHARING_VIOLATION, "another program has it open; close it there and try again"},
    {ERROR_DISK_FULL, "the disk is full; make room and try again"},
};

std::string adviceFor(const Advice& row)
{
    return std::string(row.text) + (row.text == notRegistered ? providerRegistryKey() : "");
}

std::string systemText(unsigned long code)
{
    wchar_t buffer[256];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code, 0, buffer,
                                  static_cast<DWORD>(std::size(buffer)), nullptr);
    while (length && (buffer[length - 1] <= L' ' || buffer[length - 1] == L'.')) --length;
    return length ? toUtf8({buffer, length}) : "unexpected error";
}

std::string hexOf(unsigned long code)
{
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08lX", code);
    return buffer;
}

} // namespace

void fail(std::string_view what, unsigned long code)
{
    const Advice* row = findRow(adviceByCode, &Advice::code, code);
    const std::string text = row ? adviceFor(*row) : systemText(code);
    throw Failure(std::string(what) + ": " + text + " (" + hexOf(code) + ")");
}

void failWithLastError(std::string_view what)
{
    fail(what, GetLastError());
}

} // namespace quelta::tools
