#include "end_to_end/crypto_api.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

struct Padding {
    DWORD flag;
    std::string openssl;
    unsigned overhead;
};

const Padding paddings[] = {{0, "pkcs1", 11}, {CRYPT_OAEP, "oaep", 42}};

Bytes plainOf(std::size_t size)
{
    Bytes plain(size);
    for (std::size_t i = 0; i < size; ++i) plain[i] = static_cast<unsigned char>(i * 7 + 1);
    return plain;
}

} // namespace

class CspEncryption : public EndToEndTest, public ::testing::WithParamInterface<unsigned> {
protected:
    const std::string key = "rsa" + std::to_string(GetParam());
};

INSTANTIATE_TEST_SUITE_P(AllSizes, CspEncryption, ::testing::ValuesIn(rsaSizes));

TEST_P(CspEncryption, BothWaysWithOpensslUpToTheLongestText)
{
    const Context context = openContext(key);
    usePin(context);
    const Key pair = userKey(context, AT_KEYEXCHANGE);
    for (const auto& [flag, padding, overhead] : paddings) {
        for (const Bytes& plain : {plainOf(1), plainOf(GetParam() / 8 - overhead)}) {
            folder.write("plain", plain);
            folder.write("cipher", reversed(encrypt(pair, plain, flag)));
            ASSERT_TRUE(folder.shell("options='-pkeyopt rsa_padding_mode:" + padding + "'\n" +
                                     "openssl pkeyutl -decrypt -inkey $shared/" + key + ".pem $options -in cipher -out back\n" +
                                     "cmp back plain\n" + "openssl pkeyutl -encrypt -pubin -inkey $shared/" + key +
                                     ".pub.pem $options -in plain -out theirs"));
            EXPECT_EQ(decrypt(pair, reversed(folder.read("theirs")), flag), plain) << padding << ", " << plain.size();
        }
    }
}

} // namespace quelta::test
