#include "crypto/key_encoding.h"
#include "soak/session.h"
#include "support/test_bytes.h"

namespace quelta::soak {

using namespace test;

namespace {

class KeyStorageSession final : public Session {
public:
    KeyStorageSession(Caller& caller, std::unique_ptr<KeyStorage> storage, StoredKey key)
        : Session(caller), storage_(std::move(storage)), key_(std::move(key))
    {}

    Bytes sign(ByteView text) override
    {
        const bool silent = caller_.oneIn(4);
        return ask(silent ? CallName("SignHash, silent") : "SignHash",
                   [&] { return key_.sign(sha256(text), silent ? NCRYPT_SILENT_FLAG : 0); });
    }
    void verify(ByteView text, ByteView signature, bool damaged) override
    {
        ask(damaged ? CallName("VerifySignature, damaged") : "VerifySignature",
            [&] { return key_.verify(sha256(text), signature); });
    }
    Bytes encrypt(ByteView plain) override
    {
        return ask("Encrypt", [&] { return key_.encrypt(plain, NCRYPT_PAD_PKCS1_FLAG); });
    }
    Bytes decrypt(ByteView cipher) override
    {
        return ask("Decrypt", [&] { return key_.decrypt(cipher, NCRYPT_PAD_PKCS1_FLAG); });
    }
    void importSecrets(ByteView value, ByteView wrapped) override
    {
        import("ImportKey KeyDataBlob", L"KeyDataBlob",
               concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1, sizeOf(value)}), value}));
        import("ImportKey OpaqueKeyBlob", L"OpaqueKeyBlob", wrapped);
    }
    Bytes decryptUnder(ByteView transportedKey, ByteView iv, ByteView cipher) override
    {
        const StoredKey key = import("ImportKey OpaqueTransport", L"OpaqueTransport", reversed(transportedKey), key_.get());
        if (key.status()) return {};
        ask("SetKeyProperty IV", [&] { return key.set(L"IV", iv); });
        return ask("Decrypt, AES", [&] { return key.decrypt(cipher, 0); });
    }
    Bytes modulus() override { return exported(key_); }
    std::vector<Bytes> certificates() override
    {
        return {ask("GetKeyProperty SmartCardKeyCertificate", [&] { return key_.property(L"SmartCardKeyCertificate"); })};
    }
    void enumerateKeys() override
    {
        ask("EnumKeys", [&] { return std::ranges::count(storage_->names(), toWide(keyName("rsa"))) == 1 ? Code{0} : noCode; });
    }
    void enterPin() override
    {
        ask("SetProviderProperty SmartCardPin", [&] { return setPin(pins[caller_.board.pin]); });
        ask("SetKeyProperty SmartCardPin", [&] { return setPinByKey(pins[caller_.board.pin]); });
        ask("PromptUser", [&] { return key_.call(&Table::PromptUser, L"sign", 0); });
    }
    int enterWrongPins() override
    {
        caller_.board.wrongPins += 2;
        return (setPin(wrongPin) == 0) + (setPinByKey(wrongPin) == 0);
    }
    // Nobody else deletes it.
    void makeKey() override
    {
        const StoredKey key = ask("CreatePersistedKey", [&] { return storage_->create(L"ECDSA_P256"); });
        if (ask("FinalizeKey", [&] { return key.call(&Table::FinalizeKey, 0); })) return;
        const Bytes publicKey = exported(key), digest = caller_.bytes(32);
        const Bytes signature = ask("SignHash", [&] { return key.sign(digest); });
        if (!publicKey.empty() && !signature.empty())
            judgeSignature(caller_, softtoken::decodePublicKey(publicKey), digest, signature);
        ask("DeleteKey", [&] { return key.call(&Table::DeleteKey, 0); });
    }

private:
    StoredKey import(CallName call, const wchar_t* type, ByteView blob, NCRYPT_KEY_HANDLE unwrapping = 0)
    {
        return ask(call, [&] { return storage_->import(type, blob, unwrapping); });
    }
    // As the token gives it, behind a header and an exponent.
    Bytes exported(const StoredKey& key)
    {
        const Bytes blob = ask("ExportKey", [&] { return key.exported(BCRYPT_RSAPUBLIC_BLOB); });
        return toBytes(ByteView(blob).subspan(std::min(blob.size(), sizeof(BCRYPT_RSAKEY_BLOB) + 3)));
    }
    SECURITY_STATUS setPin(const char* pin) const
    {
        return storage_->table().SetProviderProperty(storage_->provider(), L"SmartCardPin", dataOf(bytesOfText(pin)), 0, 0);
    }
    SECURITY_STATUS setPinByKey(const char* pin) const
    {
        return key_.call(&Table::SetKeyProperty, L"SmartCardPin", dataOf(bytesOfText(pin)), 0, 0);
    }

    const std::unique_ptr<KeyStorage> storage_;
    const StoredKey key_;
};

} // namespace

std::unique_ptr<Session> openKeyStorage(Caller& caller)
{
    std::unique_ptr<KeyStorage> storage;
    const auto open = [&] {
        storage = std::make_unique<KeyStorage>();
        return storage->status();
    };
    if (caller.ask("OpenProvider", open)) return nullptr;
    StoredKey key = caller.ask("OpenKey", [&] { return storage->openLabelled("rsa"); });
    return key.status() ? nullptr : std::make_unique<KeyStorageSession>(caller, std::move(storage), std::move(key));
}

} // namespace quelta::soak
