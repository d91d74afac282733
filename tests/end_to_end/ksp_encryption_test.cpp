#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct Padding {
    DWORD flag;
    std::string openssl;
    unsigned overhead;
};

const Padding paddings[] = {{2, "pkcs1", 11}, {4, "oaep", 42}};

const Bytes message = bytesOf("Data of a length that is no multiple of a block");

struct Cipher {
    std::string openssl;
    unsigned keySize;
    unsigned blockSize;
    const wchar_t* mode;
};

const Cipher ciphers[] = {{"aes-128-cbc", 16, 16, BCRYPT_CHAIN_MODE_CBC},
                          {"aes-256-cbc", 32, 16, BCRYPT_CHAIN_MODE_CBC},
                          {"des-ede3-cbc", 24, 8, BCRYPT_CHAIN_MODE_CBC},
                          {"aes-128-ecb", 16, 0, BCRYPT_CHAIN_MODE_ECB},
                          {"aes-256-ecb", 32, 0, BCRYPT_CHAIN_MODE_ECB}};

} // namespace

class KspEncryption : public EndToEndTest, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(AllSizes, KspEncryption, ::testing::ValuesIn(rsaSizes));

TEST_P(KspEncryption, BothWaysWithOpensslUpToTheLongestText)
{
    const std::string label = "rsa" + std::to_string(GetParam());
    const KeyStorage storage;
    storage.usePin();
    const StoredKey key = storage.openLabelled(label);
    for (const auto& [flag, padding, overhead] : paddings) {
        for (const Bytes& plain : {Bytes(1, 0x2A), Bytes(GetParam() / 8 - overhead, 0xB7)}) {
            folder.write("plain", plain);
            folder.write("cipher", key.encrypt(plain, flag));
            ASSERT_TRUE(folder.shell("options='-pkeyopt rsa_padding_mode:" + padding + "'\n" +
                                     "openssl pkeyutl -decrypt -inkey $shared/" + label + ".pem $options -in cipher -out back\n" +
                                     "cmp back plain\n" + "openssl pkeyutl -encrypt -pubin -inkey $shared/" + label +
                                     ".pub.pem $options -in plain -out theirs"));
            EXPECT_EQ(key.decrypt(folder.read("theirs"), flag), plain) << padding << ", " << plain.size();
        }
    }
}

class KspTransportedKeys : public EndToEndTest {};

// In either byte order of the encrypted key.
TEST_F(KspTransportedKeys, DecryptWhatOpensslEncryptedUnderThem)
{
    const KeyStorage storage;
    storage.usePin();
    const StoredKey pair = storage.openLabelled("rsa2048");
    folder.write("message", message);
    for (const auto& [cipher, keySize, blockSize, mode] : ciphers) {
        ASSERT_TRUE(folder.shell("openssl rand -out key " + std::to_string(keySize) + "; head -c " + std::to_string(blockSize) +
                                 " /dev/urandom >iv\nhex() { od -An -v -tx1 $1 | tr -d ' \\n'; }" +
                                 "\nopenssl pkeyutl -encrypt -pubin -inkey $shared/rsa2048.pub.pem -in key -out wrapped" +
                                 "\nopenssl enc -" + cipher + " -K $(hex key) " + (blockSize ? "-iv $(hex iv)" : "") +
                                 " -in message -out cipher"));
        const Bytes wrapped = folder.read("wrapped");
        for (const Bytes& blob : {wrapped, reversed(wrapped)}) {
            const StoredKey session = storage.import(L"OpaqueTransport", blob, &pair);
            session.set(L"ChainingMode", std::wstring(mode));
            if (blockSize) session.set(L"IV", folder.read("iv"));
            EXPECT_EQ(session.decrypt(folder.read("cipher"), 0), message) << cipher;
        }
    }
}

} // namespace quelta::test
