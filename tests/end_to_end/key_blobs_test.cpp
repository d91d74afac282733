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
    Bytes wrap(ByteView key, ByteView under)
    {
        folder.write("key", key);
        EXPECT_TRUE(folder.shell("openssl enc -id-aes" + std::to_string(under.size() * 8) + "-wrap -K " + toHex(under) +
                                 " -iv A6A6A6A6A6A6A6A6 -in key -out wrapped"));
        return folder.read("wrapped");
    }
    DWORD importByCryptoApi(BYTE type, std::size_t keySize, const Bytes& rest) const
    {
        return csp.import(keyBlob(type, keySize == 16 ? CALG_AES_128 : CALG_AES_256, rest)) ? 0 : GetLastError();
    }
    DWORD importPlain(const Bytes& key, bool byKeyStorage) const
    {
        const Bytes sized = concat({littleEndian({static_cast<DWORD>(key.size())}), key});
        if (!byKeyStorage) return importByCryptoApi(PLAINTEXTKEYBLOB, key.size(), sized);
        const Bytes blob = concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1}), sized});
        return static_cast<DWORD>(storage.import(L"KeyDataBlob", blob).status());
    }
    DWORD importWrapped(const Bytes& wrapped, bool byKeyStorage) const
    {
        if (byKeyStorage) return static_cast<DWORD>(storage.import(L"OpaqueKeyBlob", wrapped).status());
        // The last four bytes are no part of the key.
        return importByCryptoApi(SYMMETRICWRAPKEYBLOB, wrapped.size() - 8, concat({wrapped, Bytes(4)}));
    }

    const CryptoApi csp;
};

// A key that was imported is known by what it unwraps: the next key of the chain. What one interface imports, both unwrap with.
TEST_F(WrappedKeys, FromOpensslUnwrapUnderTheOneBeforeThem)
{
    constexpr auto refused = static_cast<DWORD>(NTE_BAD_KEY);
    for (const std::size_t size : {16, 32}) {
        for (const bool storing : {false, true}) {
            SCOPED_TRACE(testing::Message() << size << (storing ? " by key storage" : " by CryptoAPI"));
            const auto start = static_cast<unsigned char>(storing ? size : 100 + size);
            const Bytes first = counting(size, start), second = counting(48 - size, start + 1), third = counting(size, start + 2);
            const Bytes secondUnderFirst = wrap(second, first), thirdUnderSecond = wrap(third, second);
            EXPECT_EQ(importWrapped(secondUnderFirst, storing), refused);
            EXPECT_EQ(importPlain(first, storing), 0U);
            EXPECT_EQ(importWrapped(thirdUnderSecond, !storing), refused);
            EXPECT_EQ(importWrapped(secondUnderFirst, storing), 0U);
            EXPECT_EQ(importWrapped(thirdUnderSecond, !storing), 0U);
            Bytes damaged = thirdUnderSecond;
            damaged.front() ^= 1;
            EXPECT_EQ(importWrapped(damaged, storing), refused);
        }
    }
}

} // namespace quelta::test
