#include "tools/console/pin.h"

#include "base/windows_objects.h"
#include "common/text.h"
#include "tools/console/failure.h"

#include <array>

namespace quelta::tools {

namespace {

constexpr std::size_t longest = 255;

// Byte by byte: what follows the line is the command's.
Wiped<std::string> firstLine(HANDLE input)
{
    Wiped<std::string> line;
    line->reserve(longest + 1);
    char byte = 0;
    for (DWORD got = 0; ReadFile(input, &byte, 1, &got, nullptr) && got && byte != '\n';) {
        line->push_back(byte);
        if (line->size() > longest) throw Failure("the first line of standard input is too long for a PIN");
    }
    if (line->ends_with('\r')) line->pop_back();
    return line;
}

File terminal(const wchar_t* name)
{
    return fileOf(
        CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
}

class EchoOff {
public:
    explicit EchoOff(HANDLE input) : input_(input)
    {
        GetConsoleMode(input_, &mode_);
        SetConsoleMode(input_, ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT);
    }
    ~EchoOff() { SetConsoleMode(input_, mode_); }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    HANDLE input_;
    DWORD mode_ = 0;
};

Wiped<std::string> fromTerminal()
{
    const File input = terminal(L"CONIN$");
    const File output = terminal(L"CONOUT$");
    if (!input || !output)
        throw Failure("there is no terminal to ask for the PIN; give it with --pin-stdin, or let the dialog ask");
    const auto say = [&](std::wstring_view text) {
        DWORD written = 0;
        WriteConsoleW(output.get(), text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    };
    say(L"PIN of the token: ");
    Wiped<std::array<wchar_t, longest + 1>> typed;
    DWORD count = 0;
    {
        const EchoOff quiet(input.get());
        ReadConsoleW(input.get(), typed->data(), static_cast<DWORD>(typed->size()), &count, nullptr);
    }
    say(L"\r\n");
    while (count && (*typed)[count - 1] < L' ') --count;
    return Wiped<std::string>(toUtf8({typed->data(), count}));
}

} // namespace

Wiped<std::string> readPin(const PinSource& source)
{
    Wiped<std::string> pin = source.fromTerminal ? fromTerminal()
                             : source.fromInput  ? firstLine(GetStdHandle(STD_INPUT_HANDLE))
                                                 : Wiped<std::string>(source.given);
    if (pin->empty()) throw Failure("no PIN was given; try again");
    return pin;
}

} // namespace quelta::tools
