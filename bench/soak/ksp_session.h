#pragma once

#include "common/bcrypt_calls.h"
#include "crypto/key_encoding.h"
#include "crypto/primitives.h"
#include "soak/jobs.h"
#include "support/test_bytes.h"

#include <optional>

namespace quelta::soak {

class KeyStorageSession {
public:
    explicit KeyStorageSession(Caller& caller) : caller_(caller)
    {
        const auto open = [&] { return storage_.emplace().status(); };
        if (!caller_.ask("OpenProvider", open))
            key_.emplace(caller_.ask("OpenKey", [&] { return storage_->openLabelled("rsa"); }));
    }
    explicit operator bool() const { return key_ && !key_->status(); }

    Bytes sign(ByteView text)
    {
        const bool silent = caller_.oneIn(4);
        return caller_.ask(silent ? CallName("SignHash, silent") : "SignHash",
                           [&] { return key_->sign(digestOf(softtoken::sha256, text), silent ? NCRYPT_SILENT_FLAG : 0); });
    }
    void verify(ByteView text, ByteView signature, bool damaged)
    {
        caller_.ask(damaged ? CallName("VerifySignature, damaged") : "VerifySignature",
                    [&] { return key_->verify(digestOf(softtoken::sha256, text), signature); });
    }
    Bytes encrypt(ByteView plain)
    {
        return caller_.ask("Encrypt", [&] { return key_->encrypt(plain, NCRYPT_PAD_PKCS1_FLAG); });
    }
    Bytes decrypt(ByteView cipher)
    {
        return caller_.ask("Decrypt", [&] { return key_->decrypt(cipher, NCRYPT_PAD_PKCS1_FLAG); });
    }
    void importSecrets(ByteView value, ByteView wrapped)
    {
        import("ImportKey KeyDataBlob", L"KeyDataBlob",
               concat({littleEndian({BCRYPT_KEY_DATA_BLOB_MAGIC, 1, sizeOf(value)}), value}));
        import("ImportKey OpaqueKeyBlob", L"OpaqueKeyBlob", wrapped);
    }
    Bytes decryptUnder(ByteView transportedKey, ByteView iv, ByteView cipher)
    {
        if (!key_) return {};
        const StoredKey key = import("ImportKey OpaqueTransport", L"OpaqueTransport", reversed(transportedKey), key_->get());
        if (key.status()) return {};
        key.set(L"IV", iv);
        return caller_.ask("Decrypt, AES", [&] { return key.decrypt(cipher, 0); });
    }
    std::vector<Bytes> certificates()
    {
        return {
            caller_.ask("GetKeyProperty SmartCardKeyCertificate", [&] { return key_->property(L"SmartCardKeyCertificate"); })};
    }
    void enumerateKeys()
    {
        caller_.ask("EnumKeys",
                    [&] { return std::ranges::count(storage_->names(), toWide(keyName("rsa"))) == 1 ? Code{0} : noCode; });
    }
    void enterPin()
    {
        caller_.ask("SetProviderProperty SmartCardPin", [&] { return setPin(pins[caller_.board.pin]); });
        caller_.ask("PromptUser", [&] { return key_->call(&Table::PromptUser, L"sign", 0); });
    }
    bool enterWrongPin()
    {
        ++caller_.board.wrongPins;
        return setPin(wrongPin) == 0;
    }
    // Nobody else deletes the key.
    void makeKey()
    {
        const StoredKey key = caller_.ask("CreatePersistedKey", [&] { return storage_->create(L"ECDSA_P256"); });
        if (caller_.ask("FinalizeKey", [&] { return key.call(&Table::FinalizeKey, 0); })) return;
        const Bytes publicKey = exported(key), digest = caller_.bytes(32);
        const Bytes signature = caller_.ask("SignHash", [&] { return key.sign(digest); });
        if (!publicKey.empty() && !signature.empty())
            judgeSignature(caller_, softtoken::decodePublicKey(publicKey), digest, signature);
        caller_.ask("DeleteKey", [&] { return key.call(&Table::DeleteKey, 0); });
    }

private:
    StoredKey import(CallName call, const wchar_t* type, ByteView blob, NCRYPT_KEY_HANDLE unwrapping = 0)
    {
        return caller_.ask(call, [&] { return storage_->import(type, blob, unwrapping); });
    }
    // Returns the public key as the token gives it. In the blob it follows the header and the exponent.
    Bytes exported(const StoredKey& key)
    {
        const Bytes blob = caller_.ask("ExportKey", [&] { return key.exported(BCRYPT_RSAPUBLIC_BLOB); });
        return toBytes(ByteView(blob).subspan(std::min(blob.size(), sizeof(BCRYPT_RSAKEY_BLOB) + 3)));
    }
    SECURITY_STATUS setPin(const char* pin) const
    {
        if (!storage_) return NTE_INVALID_HANDLE;
        return storage_->table().SetProviderProperty(storage_->provider(), L"SmartCardPin", dataOf(bytesOfText(pin)), 0, 0);
    }

    Caller& caller_;
    std::optional<KeyStorage> storage_;
    std::optional<StoredKey> key_;
};

} // namespace quelta::soak
