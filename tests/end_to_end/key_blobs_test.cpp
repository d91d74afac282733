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
        // Both end with the modulus, in opposite byte orders.
        ASSERT_GT(std::min(blob.size(), legacy.size()), bits / 8);
        EXPECT_EQ(toBytes(ByteView(blob).last(bits / 8)), reversed(ByteView(legacy).last(bits / 8))) << bits;
    }
    // CryptoAPI exports only keys of 2048 bits.
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

        // The DER form of the largest key does not fit into a key's record.
        const StoredKey legacy = storage.import(L"CAPIPUBLICBLOB", blob);
        EXPECT_EQ(bits == 4096 ? legacy.status() : legacy.verify(digest, signature), bits == 4096 ? NTE_BAD_DATA : 0);
        const StoredKey stored = storage.import(BCRYPT_RSAPUBLIC_BLOB, storage.openLabelled(label).exported(L"PUBLICBLOB"));
        EXPECT_EQ(stored.verify(digest, signature), 0);
        EXPECT_EQ(stored.verify(Bytes(32), signature), NTE_BAD_SIGNATURE);
    }
}

} // namespace quelta::test
