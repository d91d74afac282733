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

// What is known to fit.
Answer put(Output out, ByteView value)
{
    std::ranges::copy(value, out.data);
    return tell(out, value.size(), done());
}

} // namespace

ByteView bytesWithZero(const std::string& text)
{
    return {reinterpret_cast<const unsigned char*>(text.c_str()), text.size() + 1};
}

Answer putQuietly(Output out, ByteView value)
{
    return out.holds(value.size()) ? put(out, value) : tell(out, value.size(), done());
}

Answer putTextQuietly(Output out, const std::string& text)
{
    const ByteView value = bytesWithZero(text);
    const Answer answer = putQuietly(out, value);
    return out.holds(value.size()) ? tell(out, text.size(), answer) : answer;
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

std::optional<Answer> refusalWithoutRoom(Output out, std::size_t size)
{
    if (out.holds(size)) return std::nullopt;
    return tell(out, size, out.isQuery() ? done() : moreDataAndFalse());
}

Answer putOrRefuse(Output out, ByteView value)
{
    const auto refusal = refusalWithoutRoom(out, value.size());
    return refusal ? *refusal : put(out, value);
}

Answer putKeyParameter(Output out, ByteView value, const char* shortText)
{
    if (out.isQuery() || out.room == 0) return tell(out, value.size(), done());
    if (!out.holds(value.size())) logError(shortText, value.size());
    return putOrRefuse(out, value);
}

} // namespace quelta
