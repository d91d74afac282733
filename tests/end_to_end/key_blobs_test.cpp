#include "common/hex.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

const Bytes message = counting(20);

} // namespace

class PublicKeys : public TokenTest {};

TEST_F(PublicKeys, ExportedOnesAreWhatOpensslHas)
{
    const auto check = [&](ByteView blob, const std::string& label) {
        folder.write("blob", blob);
        EXPECT_TRUE(folder.shell("openssl rsa -pubin -inform MSBLOB -in blob -pubout | cmp - $shared/" + label + ".pub.pem"));
    };
    for (const unsigned bits : rsaSizes) {
        const std::string label = "rsa" + std::to_string(bits);
        const StoredKey key = storage.openLabelled(label);
        const Bytes legacy = key.exported(L"CAPIPUBLICBLOB"), blob = key.exported(BCRYPT_RSAPUBLIC_BLOB);
        check(legacy, label);
        // The modulus is the end of both, in opposite orders.
        ASSERT_GT(std::min(blob.size(), legacy.size()), bits / 8);
        EXPECT_EQ(toBytes(ByteView(blob).last(bits / 8)), reversed(ByteView(legacy).last(bits / 8))) << bits;
    }
    // CryptoAPI gives out the keys of 2048 bits alone.
    const CryptoApi csp("rsa2048");
    const CryptKey key = csp.userKey();
    check(filled([&](BYTE* into, DWORD* size) { return CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, into, size); }), "rsa2048");
}

TEST_F(PublicKeys, ImportedOnesVerifyAndEncryptForOpenssl)
{
    folder.write("message", message);
    const CryptoApi csp;
    for (const unsigned bits : rsaSizes) {
        SCOPED_TRACE(bits);
        const std::string label = "rsa" + std::to_string(bits), key = "$shared/" + label + ".pem";
        ASSERT_TRUE(folder.shell("openssl rsa -in " + key + " -pubout -outform MSBLOB -out blob\nopenssl dgst -sha256 -sign " +
                                 key + " -out signature message\nopenssl dgst -sha256 -binary -out digest message"));
        const Bytes blob = folder.read("blob"), signature = folder.read("signature"), digest = folder.read("digest");

        const CryptKey imported = csp.import(blob);
        EXPECT_EQ(csp.verify(CALG_SHA_256, message, reversed(signature), imported), 0U);
        folder.write("cipher", reversed(CryptoApi::encrypt(imported, message)));
        EXPECT_TRUE(folder.shell("openssl pkeyutl -decrypt -inkey " + key + " -in cipher | cmp - message"));

        // The DER form of the largest has no room in a key.
        const StoredKey legacy = storage.import(L"CAPIPUBLICBLOB", blob);
        EXPECT_EQ(bits == 4096 ? legacy.status() : legacy.verify(digest, signature), bits == 4096 ? NTE_BAD_DATA : 0);
        const StoredKey stored = storage.import(BCRYPT_RSAPUBLIC_BLOB, storage.openLabelled(label).exported(L"PUBLICBLOB"));
        EXPECT_EQ(stored.verify(digest, signature), 0);
        EXPECT_EQ(stored.verify(Bytes(32), signature), NTE_BAD_SIGNATURE);
    }
}

class WrappedKeys : public TokenTest {
protected:
    DWORD importByCryptoApi(BYTE type, std::size_t size, const Bytes& rest) const
    {
        return csp.import(keyBlob(type, size == 16 ? CALG_AES_128 : CALG_AES_256, rest)) ? 0 : GetLastError();
    }
    DWORD importByKeyStorage(const wchar_t* type, ByteView blob) const
    {
        return static_cast<DWORD>(storage.import(type, blob).status());
    }
    void expectImports(const Bytes& wrapped, DWORD status) const
    {
        // The last four bytes are no part of the key.
        EXPECT_EQ(importByCryptoApi(SYMMETRICWRAPKEYBLOB, wrapped.size() - 8, concat({wrapped, Bytes(4)})), status);
        EXPECT_EQ(importByKeyStorage(L"OpaqueKeyBlob", wrapped), status);
    }

    const CryptoApi csp;
};

// The values of RFC 3394, 4.1 and 4.6. What one interface imports, both unwrap with.
TEST_F(WrappedKeys, AreTakenOnceTheTokenHasTheKeyThatTheyAreUnder)
{
    constexpr auto refused = static_cast<DWORD>(NTE_BAD_KEY);
    for (const std::string hex : {"1FA68B0A8112B447AEF34BD8FB5A7B829D3E862371D2CFE5",
                                  "28C9F404C4B810F4CBCCB35CFB87F8263F5786E2D80ED326CBC7F0E71A99F43BFB988B9B7A02DD21"}) {
        SCOPED_TRACE(hex);
        Bytes wrapped = fromHex(hex).value();
        const std::size_t size = wrapped.size() - 8;
        const Bytes sized = concat({littleEndian({static_cast<DWORD>(size)}), counting(size, 0)});
        expectImports(wrapped, refused);
        EXPECT_EQ(size == 16 ? importByCryptoApi(PLAINTEXTKEYBLOB, size, sized)
                             : importByKeyStorage(L"KeyDataBlob", concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1}), sized})),
                  0U);
        expectImports(wrapped, 0);
        wrapped.front() ^= 1;
        expectImports(wrapped, refused);
    }
}

} // namespace quelta::test
