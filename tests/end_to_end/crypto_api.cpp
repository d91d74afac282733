#include "end_to_end/crypto_api.h"

#include "base/provider_name.h"
#include "end_to_end/token_test.h"

#include <algorithm>
#include <stdexcept>

namespace quelta::test {

namespace {

// The largest signature or cipher text.
constexpr DWORD blockRoom = 512;

void require(BOOL done, const char* what)
{
    if (!done) throw std::runtime_error(std::string(what) + " failed: " + std::to_string(GetLastError()));
}

} // namespace

Context openContext(const std::string& label)
{
    const std::string container = label.empty() ? "" : keyName(label);
    HCRYPTPROV context = 0;
    require(CryptAcquireContextA(&context, container.empty() ? nullptr : container.c_str(), providerName, PROV_RSA_FULL, 0),
            "CryptAcquireContext");
    return Context(context);
}

void usePin(const Context& context)
{
    require(CryptSetProvParam(context.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(tokenPin), 0), "CryptSetProvParam");
}

Key userKey(const Context& context, DWORD keySpec)
{
    HCRYPTKEY key = 0;
    require(CryptGetUserKey(context.get(), keySpec, &key), "CryptGetUserKey");
    return Key(key);
}

Key importKey(const Context& context, ByteView blob, const Key& unwrapping)
{
    HCRYPTKEY key = 0;
    require(CryptImportKey(context.get(), blob.data(), static_cast<DWORD>(blob.size()), unwrapping.get(), 0, &key),
            "CryptImportKey");
    return Key(key);
}

DWORD tryImport(const Context& context, ByteView blob)
{
    HCRYPTKEY key = 0;
    if (!CryptImportKey(context.get(), blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key)) return GetLastError();
    CryptDestroyKey(key);
    return 0;
}

Bytes blobHeader(BYTE type, ALG_ID algorithm)
{
    Bytes header{type, CUR_BLOB_VERSION, 0, 0};
    for (unsigned shift = 0; shift < 32; shift += 8) header.push_back(static_cast<unsigned char>(algorithm >> shift & 0xFF));
    return header;
}

Hash hashOf(const Context& context, ALG_ID algorithm, ByteView data)
{
    HCRYPTHASH handle = 0;
    require(CryptCreateHash(context.get(), algorithm, 0, 0, &handle), "CryptCreateHash");
    require(CryptHashData(handle, data.data(), static_cast<DWORD>(data.size()), 0), "CryptHashData");
    return Hash(handle);
}

Bytes sign(const Hash& hash)
{
    DWORD size = 0;
    require(CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, nullptr, &size), "Asking for the signature's size");
    Bytes signature(size);
    require(CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &size), "CryptSignHash");
    signature.resize(size);
    return signature;
}

DWORD trySign(const Context& context)
{
    const Hash hash = hashOf(context, CALG_SHA_256, bytesOf("something to sign"));
    Bytes signature(blockRoom);
    DWORD size = blockRoom;
    return CryptSignHashA(hash.get(), AT_SIGNATURE, nullptr, 0, signature.data(), &size) ? 0 : GetLastError();
}

bool verifies(const Hash& hash, ByteView signature, const Key& key)
{
    if (CryptVerifySignatureA(hash.get(), signature.data(), static_cast<DWORD>(signature.size()), key.get(), nullptr, 0))
        return true;
    if (GetLastError() != static_cast<DWORD>(NTE_BAD_SIGNATURE)) require(FALSE, "CryptVerifySignature");
    return false;
}

Bytes encrypt(const Key& key, ByteView plain, DWORD flags)
{
    Bytes data(blockRoom);
    std::ranges::copy(plain, data.begin());
    auto size = static_cast<DWORD>(plain.size());
    require(CryptEncrypt(key.get(), 0, TRUE, flags, data.data(), &size, blockRoom), "CryptEncrypt");
    data.resize(size);
    return data;
}

Bytes decrypt(const Key& key, ByteView cipher, DWORD flags)
{
    Bytes data(cipher.begin(), cipher.end());
    auto size = static_cast<DWORD>(data.size());
    require(CryptDecrypt(key.get(), 0, TRUE, flags, data.data(), &size), "CryptDecrypt");
    data.resize(size);
    return data;
}

} // namespace quelta::test
