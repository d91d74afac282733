#include "csp/output.h"

#include <algorithm>
#include <string>

namespace quelta {

namespace {

// Writes a value that is known to fit.
Answer put(Output out, ByteView value)
{
    std::ranges::copy(value, out.data);
    return tellLength(out, value.size());
}

} // namespace

ByteView bytesWithZero(const std::string& text)
{
    return {reinterpret_cast<const unsigned char*>(text.c_str()), text.size() + 1};
}

Answer tellLength(Output out, std::size_t length, Answer answer)
{
    *out.length = static_cast<DWORD>(length);
    return answer;
}

Answer putQuietly(Output out, ByteView value)
{
    if (!out.holds(value.size())) return tellLength(out, value.size());
    return put(out, value);
}

Answer putTextQuietly(Output out, const std::string& text)
{
    const ByteView value = bytesWithZero(text);
    if (!out.holds(value.size())) return tellLength(out, value.size());
    put(out, value);
    return tellLength(out, text.size());
}

Answer putOrMoreData(Output out, ByteView value)
{
    if (!out.holds(value.size())) return tellLength(out, value.size(), moreDataButTrue());
    return put(out, value);
}

Answer putEnumerated(Output out, ByteView value)
{
    if (out.isQuery()) return tellLength(out, value.size(), moreDataButTrue());
    if (!out.holds(value.size())) return tellLength(out, value.size(), moreDataAndFalse());
    return put(out, value);
}

Answer putOrRefuse(Output out, ByteView value)
{
    if (out.isQuery()) return tellLength(out, value.size());
    if (!out.holds(value.size())) return tellLength(out, value.size(), moreDataAndFalse());
    return put(out, value);
}

Answer putKeyParameter(Output out, ByteView value, const char* shortText)
{
    if (out.isQuery() || out.room == 0) return tellLength(out, value.size());
    if (!out.holds(value.size())) {
        logError(shortText, value.size());
        return tellLength(out, value.size(), moreDataAndFalse());
    }
    return put(out, value);
}

} // namespace quelta
