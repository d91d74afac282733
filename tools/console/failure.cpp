#include "tools/console/failure.h"

#include "base/table.h"
#include "common/text.h"
#include "tools/console/provider_log.h"

#include <windows.h>

#include <cstdio>
#include <iterator>

namespace quelta::tools {

namespace {

struct Advice {
    unsigned long code;
    std::string_view text;
};

constexpr auto notRegistered = "the provider is not registered on this computer; quelta check tells what is missing";
constexpr auto noToken = "no token found; plug it in and try again; if it is plugged in, try another socket";
constexpr auto pinRefused = "the token refused the PIN: it is wrong, or the token is locked; another wrong one may lock it";

constexpr Advice adviceWhenOpening[] = {
    {0x80090017, notRegistered},
    {0x80090019, notRegistered},
    {0x8009001E, "the provider's DLL is not where the registry says; quelta check tells more"},
    {0x8009001D, "the provider or QueltaDSCLibrary.dll can't be loaded, or the token did not answer; quelta check tells which"},
};

constexpr Advice adviceByCode[] = {
    {0x80090023, noToken},
    {0x80090035, noToken},
    {0x8009001A, pinRefused},
    {0x80090032, pinRefused},
    {0x80090020, "the PIN was not entered or not accepted; try again, or give it with --pin-stdin"},
    {0x80090022, "the PIN is needed and nobody may be asked; give it with --pin-stdin"},
    {0x8009001D, "the token refused; is it still plugged in, and is this the right key?"},
    {0x8009002D, "the token refused; is it still plugged in, and is this the right key?"},
    {0x8009000D, "the token has no such key, or none that may do this; quelta list shows what there is"},
    {0x80090029, "the provider does not do this; try the other --provider"},
    {ERROR_FILE_NOT_FOUND, "there is no such file; check the name"},
    {ERROR_PATH_NOT_FOUND, "there is no such folder; check the name, or make the folder first"},
    {ERROR_ACCESS_DENIED, "access denied; check its permissions, and that it is no folder"},
    {ERROR_SHARING_VIOLATION, "another program has it open; close it there and try again"},
    {ERROR_DISK_FULL, "the disk is full; make room and try again"},
    {ERROR_INVALID_NAME, "this is no name for a file; * and ? are not expanded, so name each file"},
};

bool isProvidersOwn(unsigned long code)
{
    return code >> 8 == 0x800900;
}

std::string quoteOfLog(unsigned long code)
{
    if (!isProvidersOwn(code)) return {};
    const auto lines = ownErrorLines();
    if (lines.empty()) return {};
    const bool hasNumber = lines.back().find_first_of("0123456789") != std::string::npos;
    return "; the provider's log says: " + lines.back() + (hasNumber ? " (the number is the library's answer)" : "");
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

std::string failureText(std::string_view what, unsigned long code, std::string_view advice)
{
    const std::string text = advice.empty() ? systemText(code) : std::string(advice);
    return std::string(what) + ": " + text + " (" + hexOf(code) + ")" + quoteOfLog(code);
}

std::string_view adviceOf(unsigned long code)
{
    if (const auto known = causeInLog(code); !known.empty()) return known;
    const Advice* row = findRow(adviceByCode, &Advice::code, code);
    return row ? row->text : std::string_view();
}

} // namespace

std::string failureText(std::string_view what, unsigned long code)
{
    return failureText(what, code, adviceOf(code));
}

void fail(std::string_view what, unsigned long code)
{
    throw CallFailure(failureText(what, code), code);
}

void failWithLastError(std::string_view what)
{
    fail(what, GetLastError());
}

void failOpening(std::string_view what, unsigned long code)
{
    const Advice* row = findRow(adviceWhenOpening, &Advice::code, code);
    throw CallFailure(failureText(what, code, row ? row->text : adviceOf(code)), code);
}

} // namespace quelta::tools
