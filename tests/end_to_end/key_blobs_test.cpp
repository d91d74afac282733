#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"
#include "log/utils.h"

#include <bcrypt.h>

#include <algorithm>

namespace quelta::test {

namespace {

const Bytes message = bytesOf("a message");

} // namespace

class PublicKeys : public EndToEndTest {};

TEST_F(PublicKeys, ExportedOnesAreWhatOpensslHas)
{
    const auto check = [&](ByteView blob, const std::string& label) {
        folder.write("blob", blob);
        EXPECT_TRUE(folder.shell("openssl rsa -pubin -inform MSBLOB -in blob -pubout | cmp - $shared/" + label + ".pub.pem"));
    };
    const KeyStorage storage;
    for (const unsigned bits : rsaSizes) {
        const std::string label = "rsa" + std::to_string(bits);
        const StoredKey key = storage.openLabelled(label);
        const Bytes legacy = key.exported(L"CAPIPUBLICBLOB"), blob = key.exported(BCRYPT_RSAPUBLIC_BLOB);
        check(legacy, label);
        // The modulus is the end of both, in opposite orders.
        ASSERT_GT(std::min(blob.size(), legacy.size()), bits / 8);
        EXPECT_TRUE(std::ranges::equal(ByteView(blob).last(bits / 8), reversed(ByteView(legacy).last(bits / 8)))) << bits;
    }
    // CryptoAPI gives out the keys of 2048 bits alone.
    const Context context = openContext("rsa2048");
    Bytes blob(1024);
    auto size = static_cast<DWORD>(blob.size());
    ASSERT_TRUE(CryptExportKey(userKey(context, AT_SIGNATURE).get(), 0, PUBLICKEYBLOB, 0, blob.data(), &size)) << GetLastError();
    check(ByteView(blob).first(size), "rsa2048");
}

TEST_F(PublicKeys, ImportedOnesVerifyAndEncryptForOpenssl)
{
    folder.write("message", message);
    const KeyStorage storage;
    const Context context = openContext();
    usePin(context);
    for (const unsigned bits : rsaSizes) {
        SCOPED_TRACE(bits);
        const std::string label = "rsa" + std::to_string(bits), key = "$shared/" + label + ".pem";
        ASSERT_TRUE(folder.shell("openssl rsa -in " + key + " -pubout -outform MSBLOB -out blob\nopenssl dgst -sha256 -sign " +
                                 key + " -out signature message\nopenssl dgst -sha256 -binary -out digest message"));
        const Bytes blob = folder.read("blob"), signature = folder.read("signature"), digest = folder.read("digest");

        const Key imported = importKey(context, blob);
        EXPECT_TRUE(verifies(hashOf(context, CALG_SHA_256, message), reversed(signature), imported));
        folder.write("cipher", reversed(encrypt(imported, message)));
        EXPECT_TRUE(folder.shell("openssl pkeyutl -decrypt -inkey " + key + " -in cipher -out back && cmp back message"));

        // The DER form of the largest has no room in a key.
        if (bits == 4096)
            EXPECT_EQ(storage.tryImport(L"CAPIPUBLICBLOB", blob), NTE_BAD_DATA);
        else
            EXPECT_EQ(storage.import(L"CAPIPUBLICBLOB", blob).verify(digest, signature), 0);
        const StoredKey stored = storage.import(BCRYPT_RSAPUBLIC_BLOB, storage.openLabelled(label).exported(L"PUBLICBLOB"));
        EXPECT_EQ(stored.verify(digest, signature), 0);
        EXPECT_EQ(stored.verify(Bytes(32), signature), NTE_BAD_SIGNATURE);
        EXPECT_EQ(stored.number(L"Length"), bits);
    }
}

class WrappedKeys : public EndToEndTest, public ::testing::WithParamInterface<Way> {
protected:
    Bytes wrap(ByteView key, ByteView under)
    {
        folder.write("key", key);
        EXPECT_TRUE(folder.shell("openssl enc -id-aes" + std::to_string(under.size() * 8) + "-wrap -K " +
                                 Utils::toHex(under.data(), static_cast<int>(under.size())) +
                                 " -iv A6A6A6A6A6A6A6A6 -in key -out wrapped"));
        return folder.read("wrapped");
    }
    DWORD importPlain(ByteView key) const
    {
        const Bytes size{static_cast<unsigned char>(key.size()), 0, 0, 0};
        if (GetParam() == Way::ksp)
            return static_cast<DWORD>(
                storage.tryImport(L"KeyDataBlob", joined(joined(Bytes{'K', 'D', 'B', 'M', 1, 0, 0, 0}, size), key)));
        const ALG_ID algorithm = key.size() == 16 ? CALG_AES_128 : CALG_AES_256;
        return tryImport(context, joined(joined(blobHeader(PLAINTEXTKEYBLOB, algorithm), size), key));
    }
    DWORD importWrapped(ByteView wrapped) const
    {
        if (GetParam() == Way::ksp) return static_cast<DWORD>(storage.tryImport(L"OpaqueKeyBlob", wrapped));
        const ALG_ID algorithm = wrapped.size() == 24 ? CALG_AES_128 : CALG_AES_256;
        // The last four bytes are no part of the key.
        return tryImport(context, joined(joined(blobHeader(SYMMETRICWRAPKEYBLOB, algorithm), wrapped), Bytes(4)));
    }

    const Context context = openContext();
    const KeyStorage storage;
};

INSTANTIATE_TEST_SUITE_P(BothWays, WrappedKeys, ::testing::Values(Way::csp, Way::ksp), nameOfWay);

// A key that was imported is known by what it unwraps: the next key of the chain.
TEST_P(WrappedKeys, FromOpensslUnwrapUnderTheOneBeforeThem)
{
    constexpr auto refused = static_cast<DWORD>(NTE_BAD_KEY);
    storage.usePin();
    for (const std::size_t size : {16, 32}) {
        const auto fill = static_cast<unsigned char>(size);
        const Bytes first(size, fill), second(48 - size, 0x5A), third(size, static_cast<unsigned char>(fill + 1));
        const Bytes secondUnderFirst = wrap(second, first), thirdUnderSecond = wrap(third, second);
        EXPECT_EQ(importWrapped(secondUnderFirst), refused) << size;
        EXPECT_EQ(importPlain(first), 0U) << size;
        EXPECT_EQ(importWrapped(thirdUnderSecond), refused) << size;
        EXPECT_EQ(importWrapped(secondUnderFirst), 0U) << size;
        EXPECT_EQ(importWrapped(thirdUnderSecond), 0U) << size;
        Bytes damaged = thirdUnderSecond;
        damaged.front() ^= 1;
        EXPECT_EQ(importWrapped(damaged), refused) << size;
    }
}

} // namespace quelta::test
