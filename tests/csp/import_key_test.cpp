#include "csp/csp_test.h"

namespace quelta::test {

namespace {

constexpr BYTE wrapBlob = 11;

// For blobs that are too short to be public keys, on a token without AES keys.
Called<BOOL> expectedOf(BYTE type, std::size_t size)
{
    if (size < 12) return failedWith(NTE_BAD_DATA);
    if (size == 12) return failedWith(NTE_INVALID_PARAMETER);
    switch (type) {
    case SIMPLEBLOB:
    case PLAINTEXTKEYBLOB: return succeeded();
    case PUBLICKEYBLOB: return failedWith(NTE_BAD_DATA);
    case wrapBlob: return failedWith(NTE_BAD_KEY);
    default: return failedWith(NTE_BAD_TYPE);
    }
}

} // namespace

class ImportKey : public CspTest {
protected:
    ImportKey() : prov(acquire()) { cachePin(); }

    Called<BOOL> import(const Bytes& blob, HCRYPTKEY with = 0)
    {
        const GuardedBuffer data(blob);
        handle = untouchedHandle;
        const auto answer = callWithLastError([&] { return CPImportKey(prov, data.data(), data.length(), with, 3, &handle); });
        if (answer.result) ownsKey(handle);
        EXPECT_EQ(handle == untouchedHandle, !answer.result);
        return answer;
    }

    HCRYPTPROV prov;
    HCRYPTKEY handle = 0;
};

TEST_F(ImportKey, BlobsOfEveryTypeAndLengthAreReadNoFurtherThanTheyGo)
{
    token.withKeyPair(usageKeyExchange, algorithmRsa1024);
    token.plain.bytes = Bytes{1};
    const HCRYPTKEY with = userKey(prov, AT_KEYEXCHANGE);
    for (const BYTE type : Bytes{0, 1, 2, 5, 6, 7, 8, 9, 10, 11, 12, 255}) {
        for (std::size_t size = 0; size <= 24; ++size) {
            Bytes blob = keyBlob(type, CALG_AES_128, Bytes(16, 0x11));
            blob.resize(size);
            EXPECT_EQ(import(blob, with), expectedOf(type, size)) << "type " << int{type} << ", " << size << " bytes";
        }
    }
}

} // namespace quelta::test
