#include "support/recorded_calls.h"

namespace quelta::test {

RecordedCalls::Handle RecordedCalls::handsOut(const std::string& name, const std::string& arguments, const char* kind,
                                              const std::function<std::string(Handle*)>& call)
{
    constexpr Handle untouched = 0x5EED;
    Handle made = untouched;
    recorder_.record(name, arguments, [&] {
        const std::string text = call(&made);
        if (made == untouched) return text;
        if (made == 0) return text + ", handle 0";
        recorder_.introduce(kind, made);
        return text + ", " + handle(made);
    });
    return made == untouched ? 0 : made;
}

} // namespace quelta::test
