#include "end_to_end/crypto_api.h"
#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"
#include "log/utils.h"

namespace quelta::test {

namespace {

struct Digest {
    ALG_ID algorithm;
    std::string name;
    std::size_t size;
};

// Longer and shorter than every curve among them.
const Digest digests[] = {
    {CALG_SHA1, "sha1", 20}, {CALG_SHA_256, "sha256", 32}, {CALG_SHA_384, "sha384", 48}, {CALG_SHA_512, "sha512", 64}};

const Bytes message = bytesOf("The quick brown fox jumps over the lazy dog");
const Bytes otherMessage = bytesOf("The quick brown fox jumps over the lazy cog");

struct SigningKey {
    std::string label;
    std::size_t signatureSize;

    bool elliptic() const { return label.starts_with('p'); }
};

const SigningKey signingKeys[] = {{"rsa1024", 128}, {"rsa2048", 256}, {"rsa3072", 384}, {"rsa4096", 512},
                                  {"p256", 64},     {"p384", 96},     {"p521", 132}};

// Both numbers of a signature in one file, as the curves' signatures travel outside of CNG.
std::string writeSequence(ByteView signature, const std::string& file)
{
    const auto hex = [](ByteView number) { return Utils::toHex(number.data(), static_cast<int>(number.size())); };
    const std::size_t half = signature.size() / 2;
    return "printf 'asn1=SEQUENCE:s\\n[s]\\nr=INTEGER:0x" + hex(signature.first(half)) + "\\ns=INTEGER:0x" +
           hex(signature.subspan(half)) + "\\n' >numbers\nopenssl asn1parse -genconf numbers -noout -out " + file + "\n";
}

} // namespace

class CspSigning : public EndToEndTest, public ::testing::WithParamInterface<unsigned> {};

INSTANTIATE_TEST_SUITE_P(AllSizes, CspSigning, ::testing::ValuesIn(rsaSizes));

TEST_P(CspSigning, OpensslAndTheModuleAcceptWhatTheTokenSignsAndNothingElse)
{
    const std::string label = "rsa" + std::to_string(GetParam());
    const Context context = openContext(label);
    usePin(context);
    const Key publicKey = userKey(context, AT_SIGNATURE);
    folder.write("message", message);
    folder.write("other", otherMessage);
    std::string checks;
    for (const auto& [algorithm, name, size] : digests) {
        Bytes signature = sign(hashOf(context, algorithm, message));
        EXPECT_EQ(signature.size(), GetParam() / 8) << name;
        folder.write(name, reversed(signature));
        const std::string verify = "openssl dgst -" + name + " -verify $shared/" + label + ".pub.pem -signature " + name;
        checks += verify + " message\n" + "refuses " + verify + " other\n";
        // The provider signs longer hashes, but verifies none.
        if (size > 32) continue;
        EXPECT_TRUE(verifies(hashOf(context, algorithm, message), signature, publicKey)) << name;
        EXPECT_FALSE(verifies(hashOf(context, algorithm, otherMessage), signature, publicKey)) << name;
        signature[5] ^= 1;
        EXPECT_FALSE(verifies(hashOf(context, algorithm, message), signature, publicKey)) << name;
    }
    EXPECT_TRUE(folder.shell(checks));
}

class KspSigning : public EndToEndTest, public ::testing::WithParamInterface<SigningKey> {};

INSTANTIATE_TEST_SUITE_P(AllKeys, KspSigning, ::testing::ValuesIn(signingKeys), [](const auto& row) { return row.param.label; });

TEST_P(KspSigning, OpensslAndTheModuleAcceptWhatTheTokenSignsAndNothingElse)
{
    const KeyStorage storage;
    storage.usePin();
    const StoredKey stored = storage.openLabelled(GetParam().label);
    std::string checks;
    for (const auto& [algorithm, name, size] : digests) {
        const Bytes digest = patterned(size), other(size, 1);
        Bytes signature = stored.sign(digest, GetParam().signatureSize);
        ASSERT_EQ(signature.size(), GetParam().signatureSize) << name;
        folder.write("digest." + name, digest);
        folder.write("other." + name, other);
        folder.write(name, signature);
        if (GetParam().elliptic()) checks += writeSequence(signature, name);
        const std::string verify = "openssl pkeyutl -verify -pubin -inkey $shared/" + GetParam().label + ".pub.pem -sigfile " +
                                   name + (GetParam().elliptic() ? "" : " -pkeyopt digest:" + name) + " -in ";
        checks += verify + "digest." + name + "\nrefuses " + verify + "other." + name + "\n";
        EXPECT_EQ(stored.verify(digest, signature), 0) << name;
        EXPECT_EQ(stored.verify(other, signature), NTE_BAD_SIGNATURE) << name;
        signature.back() ^= 1;
        EXPECT_EQ(stored.verify(digest, signature), NTE_BAD_SIGNATURE) << name;
    }
    EXPECT_TRUE(folder.shell(checks));
}

} // namespace quelta::test
