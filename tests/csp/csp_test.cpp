#include "csp/csp_test.h"

namespace quelta::test {

namespace {

::testing::ScopedTrace traceOf(const std::source_location& where)
{
    return {where.file_name(), static_cast<int>(where.line()), "from here"};
}

} // namespace

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

} // namespace quelta::test
