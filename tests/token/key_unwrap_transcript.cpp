#include "support/scenario.h"

#include "token/key_unwrap.h"

#include <climits>

namespace quelta::test {

class KeyUnwrapTranscript : public Scenario {
protected:
    void unwrap(const Bytes& input)
    {
        recorder.recordInner("UnwrapWithAnyKek", words(input), [&] {
            const auto sizeCode = [](std::size_t size) { return size == 16 ? encryptionAes128 : encryptionAes256; };
            return words(UnwrapWithAnyKek(Token(id, nullptr), input, PinText("1234"), sizeCode, "unwrapped with "));
        });
    }

    static std::string words(const std::expected<UnwrappedKey, UnwrapFailure>& outcome)
    {
        if (!outcome) {
            switch (outcome.error()) {
            case UnwrapFailure::noKeyFits: return "no key fits";
            case UnwrapFailure::noKeyRecovered: return "no key recovered";
            case UnwrapFailure::keyTooLong: return "key too long";
            case UnwrapFailure::importRefused: return "import refused";
            }
        }
        const QueltaSymmetricKey& stored = outcome->stored;
        return "stored as " + words(stored.keyId) + " usage " + std::to_string(stored.usage) + ", value " +
               words(stored.keyValue) + ", unwrapped with " + words(outcome->keyEncryptionKeyId);
    }
    static std::string words(ByteView bytes) { return quelta::test::words(bytes); }

    const std::string id = FakeDeviceLibrary::deviceId;
    const Bytes wrapped = {0xAB, 0xCD};
};

TEST_F(KeyUnwrapTranscript, FirstFittingAESKeyOfTheListIsTaken)
{
    token.withAesKey(encryptionTripleDes);
    token.withAesKey(9);
    token.withAesKey(encryptionAes256);
    token.withAesKey(encryptionAes128).flag = 1;
    token.withAesKey(encryptionAes128);
    token.willAnswer(Call::decryptAes, 5);
    token.onImportAesKey = [](QueltaSymmetricKey& stored) { stored.usage = 7; };
    unwrap(wrapped);
}

TEST_F(KeyUnwrapTranscript, WithoutAFittingKeyNothingIsImported)
{
    unwrap(wrapped);
    token.withAesKey(encryptionTripleDes);
    unwrap(wrapped);
    token.withAesKey(encryptionAes128);
    token.willAnswer(Call::decryptAes, 1);
    unwrap(wrapped);
}

TEST_F(KeyUnwrapTranscript, SuccessEndsTheSearchWhateverItGave)
{
    token.withAesKey(encryptionAes128);
    token.withAesKey(encryptionAes128);
    for (const Given& given :
         {Given{{}, 16, true}, Given{{}, -1}, Given{{}, INT_MIN}, Given{counting(129), {}}, Given{{}, INT_MAX}}) {
        token.unwrapped = given;
        unwrap(wrapped);
    }
}

TEST_F(KeyUnwrapTranscript, RefusedImportIsToldApartAndTheWholeFieldIsTaken)
{
    token.withAesKey(encryptionAes256);
    token.unwrapped.bytes = counting(128);
    token.willAnswer(Call::importAesKey, 3);
    unwrap(wrapped);
    unwrap(wrapped);
}

TEST_F(KeyUnwrapTranscript, NoBytesAndAReferenceThatLiesReachTheTokenAsNothing)
{
    token.withAesKey(encryptionAes128).keyReferenceLength = 129;
    unwrap({});
}

} // namespace quelta::test
