#include "end_to_end/key_storage.h"
#include "end_to_end/token_test.h"
#include "log/utils.h"

namespace quelta::test {

namespace {

struct SigningKey {
    std::string label;
    std::size_t signatureSize;

    bool elliptic() const { return label.starts_with('p'); }
};

const SigningKey signingKeys[] = {{"rsa1024", 128}, {"rsa2048", 256}, {"rsa3072", 384}, {"rsa4096", 512},
                                  {"p256", 64},     {"p384", 96},     {"p521", 132}};

struct Digest {
    std::string name;
    std::size_t size;
};

// Longer and shorter than every curve among them.
const Digest digests[] = {{"sha1", 20}, {"sha256", 32}, {"sha384", 48}, {"sha512", 64}};

Bytes digestOf(std::size_t size)
{
    Bytes digest(size);
    for (std::size_t i = 0; i < size; ++i) digest[i] = static_cast<unsigned char>(0xF1 - i * 5);
    return digest;
}

std::string hex(ByteView bytes)
{
    return Utils::toHex(bytes.data(), static_cast<int>(bytes.size()));
}

// Both numbers of a signature in one file, as the curves' signatures travel outside of CNG.
std::string writeSequence(ByteView signature, const std::string& file)
{
    const std::size_t half = signature.size() / 2;
    return "printf 'asn1=SEQUENCE:s\\n[s]\\nr=INTEGER:0x" + hex(signature.first(half)) + "\\ns=INTEGER:0x" +
           hex(signature.subspan(half)) + "\\n' >numbers\nopenssl asn1parse -genconf numbers -noout -out " + file + "\n";
}

// The other way: the two numbers of `file`, each with as many digits as the curve has, as hexadecimal text.
std::string readSequence(const std::string& file, std::size_t signatureSize)
{
    const std::string digits = std::to_string(signatureSize);
    return "for n in $(openssl asn1parse -inform DER -in " + file + " | sed -n 's/.*INTEGER *://p'); do printf '%" + digits +
           "s' $n | tr ' ' 0; done | xxd -r -p >" + file + ".raw\n";
}

} // namespace

class KspSigning : public EndToEndTest, public ::testing::WithParamInterface<SigningKey> {
protected:
    const SigningKey& key = GetParam();
};

INSTANTIATE_TEST_SUITE_P(AllKeys, KspSigning, ::testing::ValuesIn(signingKeys), [](const auto& row) { return row.param.label; });

TEST_P(KspSigning, OpensslAcceptsWhatTheTokenSigns)
{
    const KeyStorage storage;
    storage.usePin();
    const StoredKey stored = storage.openLabelled(key.label);
    std::string checks;
    for (const auto& [name, size] : digests) {
        const Bytes signature = stored.sign(digestOf(size), key.signatureSize);
        ASSERT_EQ(signature.size(), key.signatureSize) << name;
        folder.write("digest." + name, digestOf(size));
        folder.write("other." + name, Bytes(size, 1));
        folder.write(name, signature);
        if (key.elliptic()) checks += writeSequence(signature, name);
        const std::string verify = "openssl pkeyutl -verify -pubin -inkey $shared/" + key.label + ".pub.pem -sigfile " + name +
                                   (key.elliptic() ? "" : " -pkeyopt digest:" + name) + " -in ";
        checks += verify + "digest." + name + "\nrefuses " + verify + "other." + name + "\n";
        EXPECT_EQ(stored.verify(digestOf(size), signature), 0) << name;
    }
    EXPECT_TRUE(folder.shell(checks));
}

TEST_P(KspSigning, AcceptsWhatOpensslSignsAndNothingElse)
{
    std::string commands;
    for (const auto& [name, size] : digests) {
        folder.write("digest." + name, digestOf(size));
        commands += "openssl pkeyutl -sign -inkey $shared/" + key.label + ".pem -in digest." + name + " -out " + name +
                    (key.elliptic() ? "\n" + readSequence(name, key.signatureSize)
                                    : " -pkeyopt digest:" + name + "\nmv " + name + " " + name + ".raw\n");
    }
    ASSERT_TRUE(folder.shell(commands));
    const KeyStorage storage;
    const StoredKey stored = storage.openLabelled(key.label);
    for (const auto& [name, size] : digests) {
        Bytes signature = folder.read(name + ".raw");
        EXPECT_EQ(stored.verify(digestOf(size), signature), 0) << name;
        EXPECT_EQ(stored.verify(Bytes(size, 1), signature), NTE_BAD_SIGNATURE) << name;
        signature.back() ^= 1;
        EXPECT_EQ(stored.verify(digestOf(size), signature), NTE_BAD_SIGNATURE) << name;
    }
}

} // namespace quelta::test
