#include "csp/csp_test.h"

namespace quelta::test {

namespace {

// How an entry point hands out data: what it answers when no buffer is there, and when the buffer is too short.
struct BufferRule {
    Called<BOOL> query;
    Called<BOOL> tooShort;
    bool noRoomIsAQuery = false;
    Called<BOOL> written = succeeded();
};

const BufferRule quietLength = {succeeded(), succeeded()};
const BufferRule moreDataButTrue = {succeededWith(ERROR_MORE_DATA), succeededWith(ERROR_MORE_DATA)};
const BufferRule enumerated = {succeededWith(ERROR_MORE_DATA), failedWith(ERROR_MORE_DATA)};
const BufferRule exported = {succeededWith(ERROR_MORE_DATA), failedWith(ERROR_MORE_DATA), false, succeededWith(ERROR_SUCCESS)};
const BufferRule shortIsRefused = {succeeded(), failedWith(ERROR_MORE_DATA)};
const BufferRule keyParameter = {succeeded(), failedWith(ERROR_MORE_DATA), true};

using HandOut = std::function<BOOL(BYTE* data, DWORD* length)>;
struct Handed {
    Called<BOOL> answer;
    DWORD length;
    Bytes buffer;
    friend bool operator==(const Handed&, const Handed&) = default;
};

Handed callWith(BYTE* data, DWORD length, const HandOut& handOut)
{
    GuardedBuffer lengthAtTheEdge = GuardedBuffer::of(length);
    const auto answer = callWithLastError([&] { return handOut(data, reinterpret_cast<DWORD*>(lengthAtTheEdge.data())); });
    return {answer, lengthAtTheEdge.as<DWORD>(), {}};
}

// With a buffer of this size that ends at an inaccessible page.
Handed handTo(std::size_t size, const HandOut& handOut)
{
    GuardedBuffer buffer(size);
    Handed handed = callWith(buffer.data(), buffer.length(), handOut);
    handed.buffer = buffer.bytes();
    return handed;
}

Bytes untouched(std::size_t size)
{
    return Bytes(size, GuardedBuffer::untouched);
}

void expectHandsOut(const BufferRule& rule, const Bytes& value, const HandOut& handOut)
{
    const auto size = static_cast<DWORD>(value.size());
    for (const DWORD stated : {DWORD{0}, size, size + 100}) {
        EXPECT_EQ(callWith(nullptr, stated, handOut), (Handed{rule.query, size, {}})) << "no buffer, room for " << stated;
    }
    for (const DWORD tooShort : {DWORD{0}, DWORD{1}, size - 1}) {
        const auto& expected = tooShort == 0 && rule.noRoomIsAQuery ? rule.query : rule.tooShort;
        EXPECT_EQ(handTo(tooShort, handOut), (Handed{expected, size, untouched(tooShort)})) << "room for " << tooShort;
    }
    for (const DWORD spare : {0, 3}) {
        EXPECT_EQ(handTo(size + spare, handOut), (Handed{rule.written, size, concat({value, untouched(spare)})})) << spare;
    }
}

} // namespace

class BufferRules : public CspTest {
protected:
    BufferRules() : pair(token.withKeyPair(usageBoth, algorithmRsa2048)), prov(acquire(keyName(pair))) {}

    QueltaKeyPair& pair;
    HCRYPTPROV prov;
};

TEST_F(BufferRules, OfProviderParameters)
{
    struct Row {
        DWORD parameter;
        const BufferRule& rule;
        Bytes value;
    };
    const Bytes name = concat({littleEndian({8}), bytesOfText("RSA-Sign"), Bytes(11)});
    const Bytes longName = concat({littleEndian({23}), bytesOfText("RSA Signature Algorithm"), Bytes(16)});
    for (const Row& row :
         {Row{PP_ENUMALGS, enumerated, concat({littleEndian({CALG_RSA_SIGN, 2048}), name})},
          {PP_ENUMALGS_EX, enumerated, concat({littleEndian({CALG_RSA_SIGN, 2048, 1024, 4096, 0x20}), name, longName})},
          {PP_ENUMCONTAINERS, moreDataButTrue, bytesOfText(keyName(pair))},
          {PP_CONTAINER, quietLength, bytesOfText(keyName(pair))},
          {PP_VERSION, quietLength, littleEndian({0x100})},
          {PP_KEYSTORAGE, moreDataButTrue, littleEndian({9})},
          {PP_ADMIN_PIN, moreDataButTrue, littleEndian({1})},
          {PP_USE_HARDWARE_RNG, moreDataButTrue, littleEndian({1})},
          {PP_KEYSPEC, moreDataButTrue, littleEndian({AT_SIGNATURE})},
          {PP_ENUMEX_SIGNING_PROT, moreDataButTrue, littleEndian({1})}}) {
        SCOPED_TRACE(row.parameter);
        expectHandsOut(row.rule, row.value,
                       [&](BYTE* data, DWORD* length) { return CPGetProvParam(prov, row.parameter, data, length, CRYPT_FIRST); });
    }
}

TEST_F(BufferRules, OfKeyParameters)
{
    token.withCertificateOf(pair, counting(300));
    const HCRYPTKEY key = userKey(prov);
    for (const auto& [parameter, value] : {std::pair<DWORD, Bytes>{KP_PERMISSIONS, littleEndian({CRYPT_DECRYPT})},
                                           {KP_ALGID, littleEndian({CALG_RSA_SIGN})},
                                           {KP_KEYLEN, littleEndian({2048})},
                                           {KP_CERTIFICATE, counting(300)}}) {
        SCOPED_TRACE(parameter);
        expectHandsOut(keyParameter, value,
                       [&](BYTE* data, DWORD* length) { return CPGetKeyParam(prov, key, parameter, data, length, 0); });
    }
}

TEST_F(BufferRules, OfHashParameters)
{
    const HCRYPTHASH hash = finishedHash(prov);
    for (const auto& [parameter, value] : {std::pair<DWORD, Bytes>{HP_ALGID, littleEndian({CALG_SHA_256})},
                                           {HP_HASHSIZE, littleEndian({32})},
                                           {HP_HASHVAL, counting(32)}}) {
        SCOPED_TRACE(parameter);
        expectHandsOut(shortIsRefused, value,
                       [&](BYTE* data, DWORD* length) { return CPGetHashParam(prov, hash, parameter, data, length, 0); });
    }
}

TEST_F(BufferRules, OfAnExportedKey)
{
    const HCRYPTKEY key = userKey(prov);
    const Bytes blob =
        keyBlob(PUBLICKEYBLOB, CALG_RSA_SIGN, concat({littleEndian({0x31415352, 2048, 65537}), reversed(publicKeyOf(pair))}));
    expectHandsOut(exported, blob,
                   [&](BYTE* data, DWORD* length) { return CPExportKey(prov, key, 0, PUBLICKEYBLOB, 0, data, length); });
}

} // namespace quelta::test
