#include "base/der.h"
#include "common/bcrypt_calls.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "support/scratch_folder.h"
#include "test_signatures.h"
#include "tools/cms/certificates.h"
#include "tools/cms/enveloped_data.h"
#include "tools/console/failure.h"

#include <gmock/gmock.h>

#include <chrono>

namespace quelta::tools {
namespace {

const Bytes contentKey(32, 0x42);
const Bytes iv(16, 0x17);

// A token whose one key opens one wrapped key: what matters here is the message around it.
class OneKeyToken : public TokenProvider {
public:
    std::vector<KeyEntry> keys() override
    {
        std::vector<KeyEntry> all;
        all.push_back({"KEY", certificateIn("rsa_with_attributes"), true, true});
        return all;
    }
    void usePin(const std::string&) override {}
    std::vector<Bytes> chain(const KeyEntry&) override { return {}; }
    Bytes sign(const KeyEntry&, const KnownDigest&, ByteView) override { return {}; }
    Wiped<Bytes> unwrap(const KeyEntry&, ByteView wrapped, bool oaep) override
    {
        sawOaep = oaep;
        return Bytes(wrapped.begin(), wrapped.end()) == Bytes{1, 2, 3} ? Wiped<Bytes>(contentKey) : Wiped<Bytes>(Bytes{9});
    }
    bool sawOaep = false;
};

Bytes recipient(std::string_view algorithm = oid::rsaEncryption)
{
    return der::sequence({der::smallInteger(0), issuerAndSerial(*certificateIn("rsa_with_attributes")),
                          der::sequence({der::oid(algorithm), der::null()}), der::octetString(Bytes{1, 2, 3})});
}

Bytes encryptedBlocks(Bytes content)
{
    const std::size_t padding = 16 - content.size() % 16;
    content.resize(content.size() + padding, static_cast<unsigned char>(padding));
    return BlockCipher(knownCiphers[0], contentKey, iv).encrypt(content);
}

Bytes cipherIdentifier()
{
    return der::sequence({der::oid(knownCiphers[0].oid), der::octetString(iv)});
}

Bytes definite(ByteView encrypted, const Bytes& recipientInfo = recipient())
{
    const Bytes content = der::sequence({der::oid(oid::data), cipherIdentifier(), der::element(der::implicitTag(0), encrypted)});
    const Bytes envelope = der::sequence({der::smallInteger(0), der::setOf({recipientInfo}), content});
    return der::sequence({der::oid(oid::envelopedData), der::element(der::explicitTag(0), envelope)});
}

// Returns a message of a writer that does not know the length: indefinite lengths outside, the content in segments.
Bytes indefinite(ByteView encrypted, std::size_t segment)
{
    const Bytes end{0, 0};
    Bytes segments;
    for (std::size_t at = 0; at < encrypted.size(); at += segment)
        append(segments, der::octetString(encrypted.subspan(at, std::min(segment, encrypted.size() - at))));
    return concat({Bytes{0x30, 0x80}, der::oid(oid::envelopedData), Bytes{0xA0, 0x80}, Bytes{0x30, 0x80}, der::smallInteger(0),
                   Bytes{0x31, 0x80}, recipient(), end, Bytes{0x30, 0x80}, der::oid(oid::data), cipherIdentifier(),
                   Bytes{0xA0, 0x80}, segments, end, end, end, end, end});
}

class Opening : public testing::Test {
protected:
    Bytes open(const Bytes& message)
    {
        InputFile input(folder.write("message", message));
        OutputFile output(folder / "content");
        decryptWith(token, "", input, output);
        output.commit();
        return folder.read("content");
    }

    ScratchFolder folder;
    OneKeyToken token;
};

TEST_F(Opening, ContentOfEveryLengthAndInSegmentsOfEveryLengthComesBack)
{
    for (const std::size_t size : {0u, 1u, 15u, 16u, 17u, 1000u}) {
        const Bytes content(size, 0x10);
        EXPECT_EQ(open(definite(encryptedBlocks(content))), content) << size;
        for (const std::size_t segment : {1u, 7u, 16u, 4096u})
            EXPECT_EQ(open(indefinite(encryptedBlocks(content), segment)), content) << size << " by " << segment;
    }
}

TEST_F(Opening, NoPartOfAMessageAndNoBrokenHeadReplacesTheOldFile)
{
    const Bytes whole = definite(encryptedBlocks(Bytes(40, 'x')));
    const Bytes old{'o', 'l', 'd'};
    const auto failsCleanly = [&](const Bytes& message) {
        folder.write("content", old);
        try {
            return open(message).size() == 40;
        } catch (const Failure&) {
            return folder.fileCount() == 2 && folder.read("content") == old;
        }
    };
    for (std::size_t at = 0; at < whole.size(); ++at) {
        folder.write("content", old);
        EXPECT_THROW(open(toBytes(ByteView(whole).first(at))), Failure) << at;
        EXPECT_EQ(folder.read("content"), old);
        for (const int change : {0x01, 0x80, 0xFF}) {
            Bytes broken = whole;
            broken[at] = static_cast<unsigned char>(broken[at] ^ change);
            EXPECT_TRUE(at >= whole.size() - 48 || failsCleanly(broken)) << at;
        }
    }
}

// Hostile: a part costs two bytes of the file, and should cost no more than its share of time and memory.
TEST_F(Opening, AnElementOfManyEmptyPartsIsRefusedAtOnce)
{
    Bytes message = concat({Bytes{0x30, 0x80}, der::oid(oid::envelopedData), Bytes{0xA0, 0x80, 0x30, 0x80}, Bytes{0x31, 0x80}});
    while (message.size() < 2'000'000) message.insert(message.end(), {der::tagNull, 0});
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THROW(open(message), Failure);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(15));
}

TEST_F(Opening, BadPaddingIsRefused)
{
    for (const int last : {0, 17, 255}) {
        Bytes block(16, 3);
        block.back() = static_cast<unsigned char>(last);
        const Bytes encrypted = BlockCipher(knownCiphers[0], contentKey, iv).encrypt(block);
        EXPECT_THROW(open(definite(encrypted)), Failure) << last;
    }
    EXPECT_THROW(open(definite({})), Failure) << "no block at all";
    EXPECT_THROW(open(definite(ByteView(encryptedBlocks({})).first(15))), Failure) << "no whole block";
}

TEST_F(Opening, TheKeyTransportAndTheRecipientAreToldApart)
{
    open(definite(encryptedBlocks({}), recipient(oid::rsaOaep)));
    EXPECT_TRUE(token.sawOaep);
    open(definite(encryptedBlocks({})));
    EXPECT_FALSE(token.sawOaep);
    EXPECT_THROW(open(definite(encryptedBlocks({}), recipient(oid::data))), Failure);
    Bytes other = recipient();
    other[other.size() / 3] ^= 1;
    EXPECT_THAT([&] { open(definite(encryptedBlocks({}), other)); },
                testing::ThrowsMessage<Failure>(testing::HasSubstr("not encrypted for a key on this token")));
}

} // namespace
} // namespace quelta::tools
