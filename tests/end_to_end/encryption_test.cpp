#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct Padding {
    DWORD cspFlag;
    DWORD kspFlag;
    std::string openssl;
    unsigned overhead;
};

const Padding paddings[] = {{0, 2, "pkcs1", 11}, {CRYPT_OAEP, 4, "oaep", 42}};

struct Cipher {
    std::string openssl;
    unsigned keySize;
    unsigned blockSize;
    // An interface that takes no such key has null or 0.
    const wchar_t* kspMode;
    ALG_ID cspAlgorithm = 0;
    std::string padding = "pkcs1";
};

const Cipher ciphers[] = {
    {"aes-128-cbc", 16, 16, BCRYPT_CHAIN_MODE_CBC},         {"aes-256-cbc", 32, 16, BCRYPT_CHAIN_MODE_CBC, CALG_AES_256},
    {"aes-256-cbc", 32, 16, nullptr, CALG_AES_256, "oaep"}, {"des-ede3-cbc", 24, 8, BCRYPT_CHAIN_MODE_CBC, CALG_3DES},
    {"aes-128-ecb", 16, 0, BCRYPT_CHAIN_MODE_ECB},          {"aes-256-ecb", 32, 0, BCRYPT_CHAIN_MODE_ECB}};

} // namespace

class Encryption : public TokenTest, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(AllSizes, Encryption, ::testing::ValuesIn(rsaSizes));

TEST_P(Encryption, BothWaysWithOpensslUpToTheLongestText)
{
    const std::string label = "rsa" + std::to_string(GetParam());
    const CryptoApi csp(label);
    const CryptKey pair = csp.userKey(AT_KEYEXCHANGE);
    const StoredKey stored = storage.openLabelled(label);
    for (const auto& [cspFlag, kspFlag, padding, overhead] : paddings) {
        for (const Bytes& plain : {counting(1), counting(GetParam() / 8 - overhead)}) {
            folder.write("plain", plain);
            folder.write("csp", reversed(CryptoApi::encrypt(pair, plain, cspFlag)));
            folder.write("ksp", stored.encrypt(plain, kspFlag));
            ASSERT_TRUE(folder.shell("options='-pkeyopt rsa_padding_mode:" + padding + "' key=$shared/" + label +
                                     "\nfor cipher in csp ksp; do\n"
                                     "openssl pkeyutl -decrypt -inkey $key.pem $options -in $cipher | cmp - plain\ndone\n"
                                     "openssl pkeyutl -encrypt -pubin -inkey $key.pub.pem $options -in plain -out theirs"));
            const Bytes theirs = folder.read("theirs");
            EXPECT_EQ(CryptoApi::decrypt(pair, reversed(theirs), cspFlag), plain) << padding << ", " << plain.size();
            EXPECT_EQ(stored.decrypt(theirs, kspFlag), plain) << padding << ", " << plain.size();
        }
    }
}

class TransportedKeys : public TokenTest {};

TEST_F(TransportedKeys, DecryptWhatOpensslEncryptedUnderThem)
{
    const Bytes message = counting(47);
    folder.write("message", message);
    const CryptoApi csp("rsa2048");
    const CryptKey pair = csp.userKey(AT_KEYEXCHANGE);
    const StoredKey stored = storage.openLabelled("rsa2048");
    for (const auto& [openssl, keySize, blockSize, kspMode, cspAlgorithm, padding] : ciphers) {
        SCOPED_TRACE(openssl + " " + padding);
        const Bytes key = counting(keySize, 100), iv = counting(blockSize, 200);
        folder.write("key", key);
        ASSERT_TRUE(folder.shell("openssl pkeyutl -encrypt -pubin -inkey $shared/rsa2048.pub.pem -in key -out wrapped -pkeyopt "
                                 "rsa_padding_mode:" +
                                 padding + "\nopenssl enc -" + openssl + " -K " + toHex(key) +
                                 (iv.empty() ? "" : " -iv " + toHex(iv)) + " -in message -out cipher"));
        const Bytes wrapped = folder.read("wrapped"), cipher = folder.read("cipher");
        if (cspAlgorithm) {
            // The header is followed by the algorithm of the encrypting key.
            const Bytes blob = keyBlob(SIMPLEBLOB, cspAlgorithm, concat({littleEndian({CALG_RSA_KEYX}), reversed(wrapped)}));
            const CryptKey session = csp.import(blob, pair.get());
            CryptSetKeyParam(session.get(), KP_IV, iv.data(), 0);
            EXPECT_EQ(CryptoApi::decrypt(session, cipher), message);
        }
        if (!kspMode) continue;
        // Key storage takes it in either byte order.
        for (const Bytes& blob : {wrapped, reversed(wrapped)}) {
            const StoredKey session = storage.import(L"OpaqueTransport", blob, stored.get());
            session.set(L"ChainingMode", wideBytes(kspMode));
            if (!iv.empty()) session.set(L"IV", iv);
            EXPECT_EQ(session.decrypt(cipher, 0), message);
        }
    }
}

} // namespace quelta::test
