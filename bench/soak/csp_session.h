#pragma once

#include "soak/jobs.h"
#include "support/test_bytes.h"

namespace quelta::soak {

class CryptoApiSession {
public:
    explicit CryptoApiSession(Caller& caller) : caller_(caller) {}
    explicit operator bool() const { return static_cast<bool>(key_); }

    Bytes sign(ByteView text)
    {
        return reversed(caller_.ask("CryptSignHash", [&] { return csp_.sign(CALG_SHA_256, text); }));
    }
    void verify(ByteView text, ByteView signature, bool damaged)
    {
        caller_.ask(damaged ? CallName("CryptVerifySignature, damaged") : "CryptVerifySignature",
                    [&] { return static_cast<Code>(csp_.verify(CALG_SHA_256, text, reversed(signature), key_)); });
    }
    Bytes encrypt(ByteView plain)
    {
        return reversed(caller_.ask("CryptEncrypt", [&] { return CryptoApi::encrypt(key_, plain); }));
    }
    Bytes decrypt(ByteView cipher)
    {
        return caller_.ask("CryptDecrypt", [&] { return CryptoApi::decrypt(key_, reversed(cipher)); });
    }
    void importSecrets(ByteView value, ByteView wrapped)
    {
        import("CryptImportKey PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB, CALG_AES_128, {littleEndian({sizeOf(value)}), value});
        // The last four bytes are no part of the key.
        import("CryptImportKey SYMMETRICWRAPKEYBLOB", SYMMETRICWRAPKEYBLOB, CALG_AES_128, {wrapped, Bytes(4)});
    }
    Bytes decryptUnder(ByteView transportedKey, ByteView iv, ByteView cipher)
    {
        const CryptKey key = import("CryptImportKey SIMPLEBLOB", SIMPLEBLOB, CALG_AES_256,
                                    {littleEndian({CALG_RSA_KEYX}), reversed(transportedKey)});
        if (!key) return {};
        CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0);
        return caller_.ask("CryptDecrypt, AES", [&] { return CryptoApi::decrypt(key, cipher); });
    }
    std::vector<Bytes> certificates()
    {
        return {caller_.ask("CryptGetKeyParam KP_CERTIFICATE", [&] { return parameter(CryptGetKeyParam, key_, KP_CERTIFICATE); }),
                caller_.ask("CryptGetProvParam PP_CERTCHAIN", [&] { return parameter(CryptGetProvParam, csp_, PP_CERTCHAIN); })};
    }
    // Only one key is always on the token. It comes first.
    void enumerateKeys()
    {
        caller_.ask("CryptGetProvParam PP_ENUMCONTAINERS", [&] {
            const Bytes name = parameter(CryptGetProvParam, csp_, PP_ENUMCONTAINERS, CRYPT_FIRST);
            return name == bytesOfText(keyName("rsa")) ? Code{0} : noCode;
        });
    }
    void enterPin()
    {
        caller_.ask("CryptSetProvParam PP_SIGNATURE_PIN", [&] { return setPin(pins[caller_.board.pin]); });
    }
    bool enterWrongPin()
    {
        ++caller_.board.wrongPins;
        return setPin(wrongPin) != FALSE;
    }
    // The driver deletes the key at any time.
    void makeKey()
    {
        if (caller_.oneIn(4))
            caller_.ask("CryptGenKey", [&] { return made<CryptKey>(CryptGenKey, csp_.get(), CALG_RSA_SIGN, 0); });
    }

private:
    static Bytes parameter(auto function, const auto& object, DWORD number, DWORD flags = 0)
    {
        return filled([&](BYTE* into, DWORD* size) { return function(object.get(), number, into, size, flags); });
    }
    CryptKey import(CallName call, BYTE type, ALG_ID algorithm, std::initializer_list<ByteView> rest)
    {
        return caller_.ask(call, [&] { return csp_.import(keyBlob(type, algorithm, concat(rest)), key_.get()); });
    }
    BOOL setPin(const char* pin) const
    {
        return CryptSetProvParam(csp_.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin), 0);
    }

    Caller& caller_;
    const CryptoApi csp_ = caller_.ask("CryptAcquireContext", [] { return CryptoApi("rsa"); });
    const CryptKey key_ = csp_.get() ? caller_.ask("CryptGetUserKey", [&] { return csp_.userKey(AT_KEYEXCHANGE); }) : CryptKey();
};

} // namespace quelta::soak
