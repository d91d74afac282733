#include "common/der_reader.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct Digest {
    ALG_ID algorithm;
    std::string name;
};

// Each curve is longer than some of these digests and shorter than others.
const Digest digests[] = {{CALG_SHA1, "sha1"}, {CALG_SHA_256, "sha256"}, {CALG_SHA_384, "sha384"}, {CALG_SHA_512, "sha512"}};

struct SigningKey {
    std::string label;
    std::size_t signatureSize;
};

const SigningKey signingKeys[] = {{"rsa1024", 128}, {"rsa2048", 256}, {"rsa3072", 384}, {"rsa4096", 512},
                                  {"p256", 64},     {"p384", 96},     {"p521", 132}};

} // namespace

class Signing : public TokenTest, public ::testing::WithParamInterface<SigningKey> {
protected:
    void signsByKeyStorage(const Digest& algorithm, bool elliptic)
    {
        const StoredKey key = storage.openLabelled(GetParam().label);
        const Bytes digest = folder.read(algorithm.name);
        Bytes signature = key.sign(digest);
        EXPECT_EQ(signature.size(), GetParam().signatureSize);
        folder.write(algorithm.name + ".ksp", elliptic ? der::ecdsaSignature(signature) : signature);
        EXPECT_EQ(key.verify(digest, signature), 0);
        EXPECT_EQ(key.verify(Bytes(digest.size(), 1), signature), NTE_BAD_SIGNATURE);
        signature.back() ^= 1;
        EXPECT_EQ(key.verify(digest, signature), NTE_BAD_SIGNATURE);
    }
    void signsByCryptoApi(const Digest& digest)
    {
        const CryptoApi csp(GetParam().label);
        const Bytes text = toBytes("text1"), other = toBytes("text2");
        Bytes signature = csp.sign(digest.algorithm, text);
        folder.write(digest.name + ".csp", reversed(signature));
        // The provider signs longer hashes, but verifies none.
        if (digest.name > "sha256") return;
        EXPECT_EQ(csp.verify(digest.algorithm, text, signature, csp.userKey()), 0U);
        EXPECT_EQ(csp.verify(digest.algorithm, other, signature, csp.userKey()), static_cast<DWORD>(NTE_BAD_SIGNATURE));
        signature[5] ^= 1;
        EXPECT_EQ(csp.verify(digest.algorithm, text, signature, csp.userKey()), static_cast<DWORD>(NTE_BAD_SIGNATURE));
    }
};

INSTANTIATE_TEST_SUITE_P(AllKeys, Signing, ::testing::ValuesIn(signingKeys), [](const auto& row) { return row.param.label; });

TEST_P(Signing, OpensslAndTheModuleAcceptWhatTheTokenSignsAndNothingElse)
{
    ASSERT_TRUE(folder.shell("printf text1 >message; printf text2 >other\n"
                             "for hash in sha1 sha256 sha384 sha512; do openssl dgst -$hash -binary -out $hash message; done"));
    const bool elliptic = GetParam().label.starts_with('p');
    for (const Digest& digest : digests) {
        SCOPED_TRACE(digest.name);
        signsByKeyStorage(digest, elliptic);
        if (!elliptic) signsByCryptoApi(digest);
    }
    EXPECT_TRUE(folder.shell("for signature in sha*.?sp; do\n"
                             "verify=\"openssl dgst -${signature%.*} -verify $shared/" +
                             GetParam().label +
                             ".pub.pem -signature $signature\"\n$verify message; refuses $verify other; done"));
}

class MadeKeys : public TokenTest {};

TEST_F(MadeKeys, SignUntilTheyAreDeleted)
{
    const auto before = storage.names();
    const StoredKey key = storage.create(L"RSA");
    EXPECT_EQ(key.call(&Table::FinalizeKey, 0), 0);
    EXPECT_EQ(storage.names().size(), before.size() + 1);
    EXPECT_EQ(key.verify(counting(32), key.sign(counting(32))), 0);
    EXPECT_EQ(key.call(&Table::DeleteKey, 0), 0);
    EXPECT_EQ(storage.names(), before);
}

} // namespace quelta::test
