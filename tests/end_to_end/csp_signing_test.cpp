#include "end_to_end/crypto_api.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct SignedHash {
    ALG_ID algorithm;
    std::string name;
};

const SignedHash signedHashes[] = {
    {CALG_SHA1, "sha1"}, {CALG_SHA_256, "sha256"}, {CALG_SHA_384, "sha384"}, {CALG_SHA_512, "sha512"}};

const Bytes message = bytesOf("The quick brown fox jumps over the lazy dog");
const Bytes otherMessage = bytesOf("The quick brown fox jumps over the lazy cog");

} // namespace

class CspSigning : public EndToEndTest, public ::testing::WithParamInterface<unsigned> {
protected:
    const std::string key = "rsa" + std::to_string(GetParam());
};

INSTANTIATE_TEST_SUITE_P(AllSizes, CspSigning, ::testing::ValuesIn(rsaSizes));

TEST_P(CspSigning, OpensslAcceptsWhatTheTokenSigns)
{
    const Context context = openContext(key);
    usePin(context);
    folder.write("message", message);
    folder.write("other", otherMessage);
    std::string checks;
    for (const auto& [algorithm, name] : signedHashes) {
        const Bytes signature = sign(hashOf(context, algorithm, message));
        EXPECT_EQ(signature.size(), GetParam() / 8) << name;
        folder.write(name, reversed(signature));
        const std::string verify = "openssl dgst -" + name + " -verify $shared/" + key + ".pub.pem -signature " + name;
        checks += verify + " message\n" + "refuses " + verify + " other\n";
    }
    EXPECT_TRUE(folder.shell(checks));
}

TEST_P(CspSigning, AcceptsWhatOpensslSignsAndNothingElse)
{
    folder.write("message", message);
    ASSERT_TRUE(folder.shell("openssl dgst -sha1 -sign $shared/" + key + ".pem -out sha1 message\n" +
                             "openssl dgst -sha256 -sign $shared/" + key + ".pem -out sha256 message"));
    const Context context = openContext(key);
    const Key publicKey = userKey(context, AT_SIGNATURE);
    for (const auto& [algorithm, name] : {signedHashes[0], signedHashes[1]}) {
        Bytes signature = reversed(folder.read(name));
        EXPECT_TRUE(verifies(hashOf(context, algorithm, message), signature, publicKey)) << name;
        EXPECT_FALSE(verifies(hashOf(context, algorithm, otherMessage), signature, publicKey)) << name;
        signature[5] ^= 1;
        EXPECT_FALSE(verifies(hashOf(context, algorithm, message), signature, publicKey)) << name;
    }
}

} // namespace quelta::test
