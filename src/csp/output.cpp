#include "csp/output.h"

#include <algorithm>
#include <string>

namespace quelta {

namespace {

Answer tell(Output out, std::size_t size, Answer answer)
{
    *out.length = static_cast<DWORD>(size);
    return answer;
}

} // namespace

ByteView bytesWithZero(const std::string& text)
{
    return {reinterpret_cast<const unsigned char*>(text.c_str()), text.size() + 1};
}

Answer put(Output out, ByteView value)
{
    std::ranges::copy(value, out.data);
    return tell(out, value.size(), done());
}

Answer putOrMoreData(Output out, ByteView value)
{
    if (!out.holds(value.size())) return tell(out, value.size(), moreDataButTrue());
    return put(out, value);
}

Answer putEnumerated(Output out, ByteView value)
{
    if (out.isQuery()) return tell(out, value.size(), moreDataButTrue());
    return putOrRefuse(out, value);
}

Answer putOrRefuse(Output out, ByteView value)
{
    if (out.isQuery()) return tell(out, value.size(), done());
    if (!out.holds(value.size())) return tell(out, value.size(), moreDataAndFalse());
    return put(out, value);
}

Answer putKeyParameter(Output out, ByteView value, const char* shortText)
{
    if (out.isQuery() || *out.length == 0) return tell(out, value.size(), done());
    if (!out.holds(value.size())) logError(shortText, value.size());
    return putOrRefuse(out, value);
}

} // namespace quelta
