#include "csp/csp_test.h"

namespace quelta::test {

namespace {

::testing::ScopedTrace traceOf(const std::source_location& where)
{
    return {where.file_name(), static_cast<int>(where.line()), "from here"};
}

Handed callWith(BYTE* data, DWORD length, const HandOut& handOut)
{
    GuardedBuffer lengthAtTheEdge = GuardedBuffer::of(length);
    const auto answer = callWithLastError([&] { return handOut(data, reinterpret_cast<DWORD*>(lengthAtTheEdge.data())); });
    return {answer, lengthAtTheEdge.as<DWORD>(), {}};
}

} // namespace

Handed handTo(const Bytes& content, const HandOut& handOut)
{
    GuardedBuffer buffer(content);
    Handed handed = callWith(buffer.data(), buffer.length(), handOut);
    handed.buffer = buffer.bytes();
    return handed;
}

Handed query(DWORD statedLength, const HandOut& handOut)
{
    return callWith(nullptr, statedLength, handOut);
}

void expectHandsOut(const BufferRule& rule, const Bytes& value, const HandOut& handOut, std::source_location where)
{
    const auto trace = traceOf(where);
    const auto size = static_cast<DWORD>(value.size());
    for (const DWORD stated : {DWORD{0}, size, size + 100}) EXPECT_EQ(query(stated, handOut), (Handed{rule.query, size, {}}));
    for (const DWORD tooShort : {DWORD{0}, DWORD{1}, size - 1}) {
        const auto& expected = tooShort == 0 && rule.noRoomIsAQuery ? rule.query : rule.tooShort;
        EXPECT_EQ(handTo(room(tooShort), handOut), (Handed{expected, size, room(tooShort)})) << "room for " << tooShort;
    }
    for (const DWORD spare : {0, 3}) {
        EXPECT_EQ(handTo(room(size + spare), handOut), (Handed{rule.written, size, concat({value, room(spare)})})) << spare;
    }
}

void expectAnswer(Called<BOOL> expected, const Attempt& attempt, std::source_location where)
{
    const auto trace = traceOf(where);
    EXPECT_EQ(callWithLastError(attempt), expected);
}

CspTest::~CspTest()
{
    const HCRYPTPROV any = contexts_.empty() ? 0 : contexts_.front();
    for (const auto hash : hashes_) CPDestroyHash(any, hash);
    for (const auto key : keys_) CPDestroyKey(any, key);
    for (const auto context : contexts_) CPReleaseContext(context, 0);
}

HCRYPTPROV CspTest::acquire(std::optional<std::string> container)
{
    HCRYPTPROV prov = 0;
    BYTE table = 0;
    require(CPAcquireContext(&prov, container ? container->c_str() : nullptr, 0, &table), "CPAcquireContext");
    contexts_.push_back(prov);
    forget();
    return prov;
}

HCRYPTKEY CspTest::userKey(HCRYPTPROV prov, DWORD keySpec)
{
    HCRYPTKEY key = 0;
    require(CPGetUserKey(prov, keySpec, &key), "CPGetUserKey");
    ownsKey(key);
    forget();
    return key;
}

HCRYPTKEY CspTest::importedKey(HCRYPTPROV prov, const Bytes& blob, HCRYPTKEY importKey)
{
    HCRYPTKEY key = 0;
    require(CPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), importKey, 0, &key), "CPImportKey");
    ownsKey(key);
    forget();
    return key;
}

HCRYPTKEY CspTest::sessionKey(HCRYPTPROV prov, ALG_ID algorithm, const Bytes& value)
{
    token.plain.bytes = value;
    const HCRYPTKEY key = importedKey(prov, keyBlob(SIMPLEBLOB, algorithm, Bytes(132)), userKey(prov, AT_KEYEXCHANGE));
    token.plain = {};
    return key;
}

HCRYPTHASH CspTest::newHash(HCRYPTPROV prov, ALG_ID algorithm)
{
    HCRYPTHASH hash = 0;
    require(CPCreateHash(prov, algorithm, 0, 0, &hash), "CPCreateHash");
    ownsHash(hash);
    forget();
    return hash;
}

HCRYPTHASH CspTest::finishedHash(HCRYPTPROV prov)
{
    const HCRYPTHASH hash = newHash(prov);
    require(CPSetHashParam(prov, hash, HP_HASHVAL, counting(32).data(), 0), "CPSetHashParam");
    forget();
    return hash;
}

void CspTest::expectLine(const LogLine& line, std::source_location where)
{
    const auto trace = traceOf(where);
    EXPECT_THAT(log.takeLines(), ::testing::Contains(line));
}

} // namespace quelta::test
