#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

#include <bcrypt.h>

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
    // Null and 0 if the interface takes no such key.
    const wchar_t* kspMode;
    ALG_ID cspAlgorithm = 0;
    std::string padding = "pkcs1";
};

const Cipher ciphers[] = {
    {"aes-128-cbc", 16, 16, BCRYPT_CHAIN_MODE_CBC},         {"aes-256-cbc", 32, 16, BCRYPT_CHAIN_MODE_CBC, CALG_AES_256},
    {"aes-256-cbc", 32, 16, nullptr, CALG_AES_256, "oaep"}, {"des-ede3-cbc", 24, 8, BCRYPT_CHAIN_MODE_CBC, CALG_3DES},
    {"aes-128-ecb", 16, 0, BCRYPT_CHAIN_MODE_ECB},          {"aes-256-ecb", 32, 0, BCRYPT_CHAIN_MODE_ECB}};

} // namespace

class Encryption : public EndToEndTest, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(AllSizes, Encryption, ::testing::ValuesIn(rsaSizes));

TEST_P(Encryption, BothWaysWithOpensslUpToTheLongestText)
{
    const std::string label = "rsa" + std::to_string(GetParam());
    const Context context = openContext(label);
    usePin(context);
    const Key pair = userKey(context, AT_KEYEXCHANGE);
    const KeyStorage storage;
    const StoredKey stored = storage.openLabelled(label);
    for (const auto& [cspFlag, kspFlag, padding, overhead] : paddings) {
        for (const Bytes& plain : {patterned(1), patterned(GetParam() / 8 - overhead)}) {
            folder.write("plain", plain);
            folder.write("csp", reversed(encrypt(pair, plain, cspFlag)));
            folder.write("ksp", stored.encrypt(plain, kspFlag));
            ASSERT_TRUE(folder.shell("options='-pkeyopt rsa_padding_mode:" + padding + "' key=$shared/" + label + "\n" +
                                     "for cipher in csp ksp; do\n"
                                     "openssl pkeyutl -decrypt -inkey $key.pem $options -in $cipher -out back\n"
                                     "cmp back plain\ndone\n"
                                     "openssl pkeyutl -encrypt -pubin -inkey $key.pub.pem $options -in plain -out theirs"));
            const Bytes theirs = folder.read("theirs");
            EXPECT_EQ(decrypt(pair, reversed(theirs), cspFlag), plain) << padding << ", " << plain.size();
            EXPECT_EQ(stored.decrypt(theirs, kspFlag), plain) << padding << ", " << plain.size();
        }
    }
}

class TransportedKeys : public EndToEndTest {};

TEST_F(TransportedKeys, DecryptWhatOpensslEncryptedUnderThem)
{
    const Bytes message = bytesOf("Data of a length that is no multiple of a block");
    folder.write("message", message);
    const Context context = openContext("rsa2048");
    usePin(context);
    const Key pair = userKey(context, AT_KEYEXCHANGE);
    const KeyStorage storage;
    const StoredKey stored = storage.openLabelled("rsa2048");
    for (const auto& [openssl, keySize, blockSize, kspMode, cspAlgorithm, padding] : ciphers) {
        ASSERT_TRUE(folder.shell("openssl rand -out key " + std::to_string(keySize) + "; head -c " + std::to_string(blockSize) +
                                 " /dev/urandom >iv\nhex() { od -An -v -tx1 $1 | tr -d ' \\n'; }"
                                 "\nopenssl pkeyutl -encrypt -pubin -inkey $shared/rsa2048.pub.pem -in key -out wrapped "
                                 "-pkeyopt rsa_padding_mode:" +
                                 padding + "\nopenssl enc -" + openssl + " -K $(hex key) " + (blockSize ? "-iv $(hex iv)" : "") +
                                 " -in message -out cipher"));
        const Bytes wrapped = folder.read("wrapped"), turned = reversed(wrapped), cipher = folder.read("cipher");
        const Bytes iv = folder.read("iv");
        if (cspAlgorithm) {
            // After the header, the algorithm that the key is encrypted with.
            const Bytes head = joined(blobHeader(SIMPLEBLOB, cspAlgorithm), Bytes{0x00, 0xA4, 0x00, 0x00});
            const Key session = importKey(context, joined(head, turned), pair);
            ASSERT_TRUE(CryptSetKeyParam(session.get(), KP_IV, iv.data(), 0)) << GetLastError();
            EXPECT_EQ(decrypt(session, cipher), message) << openssl;
        }
        if (!kspMode) continue;
        // Key storage takes it in either byte order.
        for (const Bytes& blob : {wrapped, turned}) {
            const StoredKey session = storage.import(L"OpaqueTransport", blob, &stored);
            session.set(L"ChainingMode", std::wstring(kspMode));
            if (blockSize) session.set(L"IV", iv);
            EXPECT_EQ(session.decrypt(cipher, 0), message) << openssl;
        }
    }
}

} // namespace quelta::test
