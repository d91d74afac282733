// Run with the recording library on the path.

#include "end_to_end/recording/recording_library.h"
#include "end_to_end/token_test.h"

#include <sstream>

namespace quelta::test {

namespace {

// Numbers, flags and addresses; each other argument is "*".
constexpr const char* expectedCalls[] = {
    "quelta_init 0 2",
    "quelta_getConnectedDeviceList * false null",
    "quelta_initDevice * true null",
    "quelta_validatePassword * * 1 * null",
    "quelta_getKeyPairList * null",
    "quelta_getCertificateList * null",
    "quelta_getAesKeyList * null",
    "quelta_generateKeyPair * * * null",
    "quelta_deleteKeyPair * * * true null",
    "quelta_importAesKey * * * null",
    "quelta_signHash * * * * 20 * * false null",
    "quelta_verifySignatureHash 2 * * 20 * * * 256 null",
    "quelta_decrypt * * * * 256 * * true null",
    "quelta_encrypt * 1 * 32 * * * * null",
    "quelta_decrypt_aes * * * * 24 * * * null 0 null",
    "quelta_decryptSymetric * * 32 * * * 0 * 32 null",
    "quelta_initHash * 3 * null",
    "quelta_updateHash * * 20 null",
    "quelta_finalHash * * * null",
    "quelta_generateRamdomNumber * 20 * false null",
};

bool isExpected(const std::string& word, Argument argument)
{
    if (word == "null") return argument == 0;
    if (word == "false" || word == "true") return static_cast<bool>(argument & 0xFF) == (word == "true");
    return word == "*" || std::to_string(static_cast<int>(argument)) == word;
}

} // namespace

// The process is fresh: random numbers come from the hardware, for which their flag is false.
TEST(LibraryCalls, OfTheBuiltModulePassWhatTheLibraryExpects)
{
    // Loaded first: the token's own library has the same name.
    const Library library(LoadLibraryA("QueltaDSCLibrary.dll"));
    const TokenFolder folder;
    LogFolder log;
    const KeyStorage storage;
    storage.usePin();
    const CryptoApi csp("rsa2048");
    Bytes bytes = counting(20);
    csp.sign(CALG_SHA_256, bytes);
    CryptGenRandom(csp.get(), 20, bytes.data());
    const StoredKey key = storage.openLabelled("rsa2048"), made = storage.create(L"RSA");
    key.verify(bytes, key.sign(bytes));
    key.decrypt(key.encrypt(bytes, NCRYPT_PAD_PKCS1_FLAG), NCRYPT_PAD_PKCS1_FLAG);
    key.property(L"SmartCardKeyCertificate");
    storage.import(L"OpaqueTransport", key.encrypt(counting(32), NCRYPT_PAD_PKCS1_FLAG), key.get()).decrypt(Bytes(32), 0);
    storage.import(L"KeyDataBlob", concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1, 16}), counting(16)}));
    storage.import(L"OpaqueKeyBlob", Bytes(24));
    const auto before = storage.names();
    EXPECT_EQ(made.call(&Table::FinalizeKey, 0), 0);
    EXPECT_EQ(storage.names().size(), before.size() + 1);
    EXPECT_EQ(made.verify(bytes, made.sign(bytes)), 0);
    EXPECT_EQ(made.call(&Table::DeleteKey, 0), 0);
    EXPECT_EQ(storage.names(), before);

    void* const function = reinterpret_cast<void*>(GetProcAddress(library.get(), "recordedCalls"));
    ASSERT_TRUE(function);
    RecordedCalls calls;
    reinterpret_cast<decltype(&recordedCalls)>(function)(calls);
    for (const std::string expected : expectedCalls) {
        std::istringstream words(expected);
        std::string name, word;
        words >> name;
        EXPECT_TRUE(calls.contains(name)) << expected;
        for (const Argument argument : calls[name]) {
            if (!(words >> word)) break;
            EXPECT_TRUE(isExpected(word, argument)) << expected << ", not " << word << " but " << argument;
        }
    }
}

} // namespace quelta::test
