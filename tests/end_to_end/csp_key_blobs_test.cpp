#include "end_to_end/crypto_api.h"
#include "end_to_end/token_test.h"
#include "log/utils.h"

namespace quelta::test {

namespace {

const Bytes message = bytesOf("a message");
constexpr const char kek[] = "000102030405060708090A0B0C0D0E0FF0E0D0C0B0A090807060504030201000";

Bytes exported(const Key& key)
{
    Bytes blob(1024);
    auto size = static_cast<DWORD>(blob.size());
    EXPECT_TRUE(CryptExportKey(key.get(), 0, PUBLICKEYBLOB, 0, blob.data(), &size)) << GetLastError();
    blob.resize(size);
    return blob;
}

Bytes joined(Bytes first, ByteView second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Its last four bytes are no part of the key.
Bytes wrapBlob(ALG_ID algorithm, ByteView wrapped)
{
    return joined(joined(blobHeader(SYMMETRICWRAPKEYBLOB, algorithm), wrapped), Bytes(4));
}

struct Transported {
    ALG_ID algorithm;
    std::string cipher;
    unsigned keySize;
    unsigned blockSize;
    bool oaep;
};

const Transported transportedKeys[] = {{CALG_AES_256, "aes-256-cbc", 32, 16, false},
                                       {CALG_AES_256, "aes-256-cbc", 32, 16, true},
                                       {CALG_3DES, "des-ede3-cbc", 24, 8, false}};

} // namespace

class CspKeyBlobs : public EndToEndTest {
protected:
    // A command that wraps the file "key" under a key in hexadecimal, as RFC 3394 has it.
    static std::string wrapCommand(const std::string& under)
    {
        return "openssl enc -id-aes" + std::to_string(under.size() * 4) + "-wrap -K " + under +
               " -iv A6A6A6A6A6A6A6A6 -in key -out wrapped";
    }
    Bytes wrapped(ByteView key, const std::string& under)
    {
        folder.write("key", key);
        EXPECT_TRUE(folder.shell(wrapCommand(under)));
        return folder.read("wrapped");
    }
};

TEST_F(CspKeyBlobs, OpensslVerifiesWithTheExportedPublicKey)
{
    const Context context = openContext("rsa2048");
    usePin(context);
    folder.write("blob", exported(userKey(context, AT_SIGNATURE)));
    folder.write("message", message);
    folder.write("signature", reversed(sign(hashOf(context, CALG_SHA_256, message))));
    EXPECT_TRUE(folder.shell("openssl rsa -pubin -inform MSBLOB -in blob -pubout -out exported.pem\n"
                             "openssl dgst -sha256 -verify exported.pem -signature signature message"));
}

TEST_F(CspKeyBlobs, PublicKeysFromOpensslVerifyAndEncrypt)
{
    folder.write("message", message);
    const Context context = openContext();
    usePin(context);
    for (const unsigned bits : rsaSizes) {
        const std::string make = "openssl genrsa -out made.pem " + std::to_string(bits) +
                                 "\nopenssl rsa -in made.pem -pubout -outform MSBLOB -out blob"
                                 "\nopenssl dgst -sha256 -sign made.pem -out signature message";
        ASSERT_TRUE(folder.shell(make));
        const Key key = importKey(context, folder.read("blob"));
        EXPECT_TRUE(verifies(hashOf(context, CALG_SHA_256, message), reversed(folder.read("signature")), key)) << bits;
        folder.write("cipher", reversed(encrypt(key, message)));
        EXPECT_TRUE(folder.shell("openssl pkeyutl -decrypt -inkey made.pem -in cipher -out back && cmp back message"));
    }
}

TEST_F(CspKeyBlobs, SessionKeyFromOpensslDecryptsItsData)
{
    const Context context = openContext("rsa2048");
    usePin(context);
    const Key pair = userKey(context, AT_KEYEXCHANGE);
    folder.write("exported", exported(pair));
    folder.write("message", message);
    for (const auto& [algorithm, cipher, keySize, blockSize, oaep] : transportedKeys) {
        ASSERT_TRUE(folder.shell(
            "openssl rand -out key " + std::to_string(keySize) + "; openssl rand -out iv " + std::to_string(blockSize) +
            "\nopenssl rsa -pubin -inform MSBLOB -in exported -pubout -out exported.pem"
            "\nopenssl pkeyutl -encrypt -pubin -inkey exported.pem -in key -out wrapped " +
            (oaep ? "-pkeyopt rsa_padding_mode:oaep" : "") + "\nhex() { od -An -v -tx1 $1 | tr -d ' \\n'; }" + "\nopenssl enc -" +
            cipher + " -K $(hex key) -iv $(hex iv) -in message -out cipher"));
        // After the header, the algorithm that the key is encrypted with.
        const Bytes wrappedBy{0x00, 0xA4, 0x00, 0x00};
        const Bytes blob = joined(joined(blobHeader(SIMPLEBLOB, algorithm), wrappedBy), reversed(folder.read("wrapped")));
        const Key session = importKey(context, blob, pair);
        ASSERT_TRUE(CryptSetKeyParam(session.get(), KP_IV, folder.read("iv").data(), 0)) << GetLastError();
        EXPECT_EQ(decrypt(session, folder.read("cipher")), message) << cipher;
    }
}

// A key that was imported is known by what it unwraps: the next key of the chain.
TEST_F(CspKeyBlobs, KeysWrappedByOpensslUnwrapUnderTheOneBeforeThem)
{
    drive(std::string("import --aes ") + kek);
    const Bytes second(32, 0x5A), third(16, 0xC3);
    const std::string secondHex = Utils::toHex(second.data(), 32), thirdHex = Utils::toHex(third.data(), 16);
    const Bytes secondBlob = wrapBlob(CALG_AES_256, wrapped(second, kek));
    const Bytes thirdBlob = wrapBlob(CALG_AES_128, wrapped(third, secondHex));
    const Bytes fourthBlob = wrapBlob(CALG_AES_256, wrapped(second, thirdHex));
    const Context context = openContext();
    usePin(context);

    const auto refused = [&](const Bytes& blob) {
        HCRYPTKEY key = 0;
        EXPECT_FALSE(CryptImportKey(context.get(), blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key));
        EXPECT_EQ(GetLastError(), static_cast<DWORD>(NTE_BAD_KEY));
    };
    refused(thirdBlob);
    importKey(context, secondBlob);
    refused(fourthBlob);
    importKey(context, thirdBlob);
    importKey(context, fourthBlob);
    Bytes damaged = fourthBlob;
    damaged[9] ^= 1;
    refused(damaged);
}

TEST_F(CspKeyBlobs, PlainKeyIsStoredOnTheToken)
{
    const Bytes plain(16, 0x3C);
    const Bytes wrappedKey = wrapped(Bytes(32, 1), Utils::toHex(plain.data(), 16));
    const Context context = openContext();
    usePin(context);
    importKey(context, joined(joined(blobHeader(PLAINTEXTKEYBLOB, CALG_AES_128), Bytes{16, 0, 0, 0}), plain));
    importKey(context, wrapBlob(CALG_AES_256, wrappedKey));
}

} // namespace quelta::test
