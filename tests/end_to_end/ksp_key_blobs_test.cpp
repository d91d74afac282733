#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"
#include "log/utils.h"

#include <bcrypt.h>

namespace quelta::test {

namespace {

const Bytes digest(32, 0x6B);

// The status of a verification by the system's own primitives.
NTSTATUS systemVerifies(Bytes publicBlob, Bytes hash, Bytes signature)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    BCRYPT_KEY_HANDLE key = nullptr;
    BCRYPT_PKCS1_PADDING_INFO padding{BCRYPT_SHA256_ALGORITHM};
    NTSTATUS status = BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_RSA_ALGORITHM, nullptr, 0);
    if (!status)
        status = BCryptImportKeyPair(algorithm, nullptr, BCRYPT_RSAPUBLIC_BLOB, &key, publicBlob.data(),
                                     static_cast<ULONG>(publicBlob.size()), 0);
    if (!status) {
        status = BCryptVerifySignature(key, &padding, hash.data(), static_cast<ULONG>(hash.size()), signature.data(),
                                       static_cast<ULONG>(signature.size()), BCRYPT_PAD_PKCS1);
        BCryptDestroyKey(key);
    }
    if (algorithm) BCryptCloseAlgorithmProvider(algorithm, 0);
    return status;
}

Bytes keyDataBlob(ByteView key)
{
    Bytes blob{'K', 'D', 'B', 'M', 1, 0, 0, 0, static_cast<unsigned char>(key.size()), 0, 0, 0};
    blob.insert(blob.end(), key.begin(), key.end());
    return blob;
}

} // namespace

class KspKeyBlobs : public EndToEndTest {};

TEST_F(KspKeyBlobs, ExportedPublicKeysVerifyElsewhere)
{
    const KeyStorage storage;
    storage.usePin();
    folder.write("digest", digest);
    for (const unsigned bits : rsaSizes) {
        const StoredKey key = storage.openLabelled("rsa" + std::to_string(bits));
        const Bytes signature = key.sign(digest, bits / 8);
        EXPECT_EQ(systemVerifies(key.exported(BCRYPT_RSAPUBLIC_BLOB), digest, signature), 0) << bits;
        EXPECT_NE(systemVerifies(key.exported(BCRYPT_RSAPUBLIC_BLOB), Bytes(32), signature), 0) << bits;
        folder.write("signature", signature);
        folder.write("blob", key.exported(L"CAPIPUBLICBLOB"));
        EXPECT_TRUE(folder.shell("openssl rsa -pubin -inform MSBLOB -in blob -pubout -out exported.pem\n"
                                 "openssl pkeyutl -verify -pubin -inkey exported.pem -in digest -sigfile signature "
                                 "-pkeyopt digest:sha256"));
    }
}

TEST_F(KspKeyBlobs, PublicKeysFromOpensslVerifyItsSignatures)
{
    const KeyStorage storage;
    folder.write("digest", digest);
    for (const unsigned bits : rsaSizes) {
        const std::string label = "rsa" + std::to_string(bits);
        ASSERT_TRUE(folder.shell("openssl rsa -in $shared/" + label + ".pem -pubout -outform MSBLOB -out blob\n" +
                                 "openssl pkeyutl -sign -inkey $shared/" + label +
                                 ".pem -in digest -out signature -pkeyopt digest:sha256"));
        if (bits == 4096) {
            // Its DER form has no room in a key.
            EXPECT_EQ(storage.refusal(L"CAPIPUBLICBLOB", folder.read("blob")), NTE_BAD_DATA);
        } else {
            const StoredKey legacy = storage.import(L"CAPIPUBLICBLOB", folder.read("blob"));
            EXPECT_EQ(legacy.verify(digest, folder.read("signature")), 0) << bits;
        }
        const StoredKey imported = storage.import(BCRYPT_RSAPUBLIC_BLOB, storage.openLabelled(label).exported(L"PUBLICBLOB"));
        EXPECT_EQ(imported.verify(digest, folder.read("signature")), 0) << bits;
        EXPECT_EQ(imported.verify(Bytes(32), folder.read("signature")), NTE_BAD_SIGNATURE) << bits;
        EXPECT_EQ(imported.number(L"Length"), bits);
    }
}

// A key that was imported is known by what it unwraps.
TEST_F(KspKeyBlobs, KeysAreStoredOnTheTokenAndUnwrapWhatOpensslWrapped)
{
    const KeyStorage storage;
    storage.usePin();
    for (const std::size_t size : {16, 32}) {
        const Bytes kek(size, static_cast<unsigned char>(size + 1)), next(48 - size, static_cast<unsigned char>(size + 2));
        folder.write("key", next);
        ASSERT_TRUE(folder.shell("openssl enc -id-aes" + std::to_string(size * 8) + "-wrap -K " +
                                 Utils::toHex(kek.data(), static_cast<int>(size)) +
                                 " -iv A6A6A6A6A6A6A6A6 -in key -out wrapped"));
        Bytes wrapped = folder.read("wrapped");
        EXPECT_EQ(storage.refusal(L"OpaqueKeyBlob", wrapped), NTE_BAD_KEY);
        storage.import(L"KeyDataBlob", keyDataBlob(kek));
        storage.import(L"OpaqueKeyBlob", wrapped);
        wrapped.front() ^= 1;
        EXPECT_EQ(storage.refusal(L"OpaqueKeyBlob", wrapped), NTE_BAD_KEY);
    }
}

} // namespace quelta::test
