#include "ksp/ksp_test.h"

#include "encoding/little_endian.h"
#include "encoding/rsa_public_key.h"
#include "log/utils.h"
#include "token/key_match.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace quelta::test {

namespace {

constexpr DWORD noResult = 0x5EED;

void expectAnswer(const PropertyCall& call, PBYTE output, DWORD room, SECURITY_STATUS status, std::size_t size)
{
    GuardedBuffer result = GuardedBuffer::of(noResult);
    EXPECT_EQ(call(output, room, reinterpret_cast<DWORD*>(result.data())), status) << "room for " << room;
    EXPECT_EQ(result.as<DWORD>(), size) << "room for " << room;
}

} // namespace

KeyStorageFunctionTable& keyStorageTable()
{
    KeyStorageFunctionTable* table = nullptr;
    requireStatus(GetKeyStorageInterface(L"", &table, 0), "GetKeyStorageInterface");
    return *table;
}

void expectGives(const Bytes& value, const PropertyCall& call, std::source_location where)
{
    const ::testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "giving a value");
    const auto size = static_cast<DWORD>(value.size());
    for (const DWORD room : {DWORD{0}, size}) expectAnswer(call, nullptr, room, 0, size);
    for (const DWORD room : {DWORD{0}, DWORD{1}, size - 1}) {
        GuardedBuffer output(room);
        expectAnswer(call, output.data(), room, NTE_BUFFER_TOO_SMALL, size);
        EXPECT_TRUE(output.untouchedFrom(0)) << "room for " << room;
    }
    for (const DWORD room : {size, size + 3}) {
        GuardedBuffer output(room);
        expectAnswer(call, output.data(), room, 0, size);
        EXPECT_EQ(output.first(size), value) << "room for " << room;
        EXPECT_TRUE(output.untouchedFrom(size)) << "room for " << room;
    }
}

std::wstring nameOf(const QueltaKeyPair& pair)
{
    const std::string name = hexOf(keyIdOf(pair));
    return {name.begin(), name.end()};
}

Bytes publicKeyBytes(const QueltaKeyPair& pair)
{
    return {publicKeyOf(pair).begin(), publicKeyOf(pair).end()};
}

Bytes publicKeyForToken(const QueltaKeyPair& pair)
{
    return pair.algorithm >= algorithmP256 ? publicKeyBytes(pair) : rawModulusToDer(publicKeyOf(pair));
}

KspTest::KspTest()
{
    requireStatus(ksp.OpenProvider(&provider, L"", 0), "OpenProvider");
    forget();
}

KspTest::~KspTest()
{
    for (const auto key : keys_) ksp.FreeKey(provider, key);
    ksp.FreeProvider(provider);
}

NCRYPT_KEY_HANDLE KspTest::opened(const QueltaKeyPair& pair)
{
    NCRYPT_KEY_HANDLE key = 0;
    requireStatus(ksp.OpenKey(provider, &key, nameOf(pair).c_str(), 0, 0), "OpenKey");
    return owned(key);
}

NCRYPT_KEY_HANDLE KspTest::created(LPCWSTR algorithm, DWORD legacyKeySpec)
{
    NCRYPT_KEY_HANDLE key = 0;
    requireStatus(ksp.CreatePersistedKey(provider, &key, algorithm, L"a name", legacyKeySpec, 0), "CreatePersistedKey");
    return owned(key);
}

NCRYPT_KEY_HANDLE KspTest::imported(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE importKey)
{
    NCRYPT_KEY_HANDLE key = 0;
    requireStatus(import(type, blob, key, importKey), "ImportKey");
    return owned(key);
}

NCRYPT_KEY_HANDLE KspTest::clearKey(const Bytes& value)
{
    token.plain.bytes = value;
    const auto importKey = opened(token.withKeyPair(usageKeyExchange, algorithmRsa2048));
    const auto key = imported(L"OpaqueTransport", Bytes(256), importKey);
    token.plain = {};
    return key;
}

NCRYPT_KEY_HANDLE KspTest::owned(NCRYPT_KEY_HANDLE key)
{
    keys_.push_back(key);
    forget();
    return key;
}

SECURITY_STATUS KspTest::import(LPCWSTR type, const Bytes& blob, NCRYPT_KEY_HANDLE& key, NCRYPT_KEY_HANDLE importKey)
{
    GuardedBuffer data(blob);
    return ksp.ImportKey(provider, importKey, type, nullptr, &key, data.data(), data.length(), 0);
}

SECURITY_STATUS KspTest::setProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name, const Bytes& value)
{
    GuardedBuffer input(value);
    return ksp.SetKeyProperty(provider, key, name, input.data(), input.length(), 0);
}

DWORD KspTest::dwordProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name)
{
    GuardedBuffer value(sizeof(DWORD));
    DWORD size = 0;
    requireStatus(ksp.GetKeyProperty(provider, key, name, value.data(), value.length(), &size, 0), "GetKeyProperty");
    return value.as<DWORD>();
}

std::wstring KspTest::textProperty(NCRYPT_KEY_HANDLE key, LPCWSTR name)
{
    std::array<wchar_t, 64> text{};
    DWORD size = 0;
    requireStatus(ksp.GetKeyProperty(provider, key, name, reinterpret_cast<PBYTE>(text.data()), sizeof text, &size, 0),
                  "GetKeyProperty");
    return text.data();
}

} // namespace quelta::test
