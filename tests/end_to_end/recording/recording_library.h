// A QueltaDSCLibrary.dll that writes down the arguments of each call and succeeds. Its token "DEVICE" has one RSA-2048 key pair
// for all uses, whose hardware flag is set.
#pragma once

#include "token/device_library.h"

#include <concepts>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

namespace quelta::test {

inline std::string argumentText(bool flag)
{
    return flag ? "true" : "false";
}
inline std::string argumentText(const char* text)
{
    return text ? text : "null";
}
template <class Number>
requires(std::integral<Number> || std::is_enum_v<Number>) std::string argumentText(Number number)
{
    return std::to_string(static_cast<std::int64_t>(number));
}
// An address, with a mark that tells it from a number.
inline std::string argumentText(const void* address)
{
    return address ? "@" + std::to_string(reinterpret_cast<std::uintptr_t>(address)) : "null";
}
inline std::string argumentText(const CertificateDetails& details)
{
    return argumentText(static_cast<const void*>(&details));
}

template <class... Arguments>
std::string callText(std::string function, const Arguments&... arguments)
{
    ((function += ' ' + argumentText(arguments)), ...);
    return function;
}

struct RecordingLibrary {
    // Equal calls appear once, so that the device monitor's polls do not disturb.
    std::vector<std::string> calls;
    // The module's own class, which calls the functions of this library.
    DeviceLibrary& forwarding;
};

} // namespace quelta::test

// Exported beside the library's own functions.
extern "C" __declspec(dllexport) quelta::test::RecordingLibrary* recordingLibrary();
