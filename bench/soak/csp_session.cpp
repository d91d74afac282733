#include "soak/session.h"
#include "support/test_bytes.h"

namespace quelta::soak {

using namespace test;

namespace {

class CryptoApiSession final : public Session {
public:
    CryptoApiSession(Caller& caller, CryptoApi csp, CryptKey key) : Session(caller), csp_(std::move(csp)), key_(std::move(key)) {}

    Bytes sign(ByteView text) override
    {
        return reversed(ask("CryptSignHash", [&] { return csp_.sign(CALG_SHA_256, text); }));
    }
    void verify(ByteView text, ByteView signature, bool damaged) override
    {
        ask(damaged ? CallName("CryptVerifySignature, damaged") : "CryptVerifySignature",
            [&] { return static_cast<Code>(csp_.verify(CALG_SHA_256, text, reversed(signature), key_)); });
    }
    Bytes encrypt(ByteView plain) override
    {
        return reversed(ask("CryptEncrypt", [&] { return CryptoApi::encrypt(key_, plain); }));
    }
    Bytes decrypt(ByteView cipher) override
    {
        return ask("CryptDecrypt", [&] { return CryptoApi::decrypt(key_, reversed(cipher)); });
    }
    void importSecrets(ByteView value, ByteView wrapped) override
    {
        import("CryptImportKey PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB, CALG_AES_128, {littleEndian({sizeOf(value)}), value});
        // The last four bytes are no part of the key.
        import("CryptImportKey SYMMETRICWRAPKEYBLOB", SYMMETRICWRAPKEYBLOB, CALG_AES_128, {wrapped, Bytes(4)});
    }
    Bytes decryptUnder(ByteView transportedKey, ByteView iv, ByteView cipher) override
    {
        const CryptKey key = import("CryptImportKey SIMPLEBLOB", SIMPLEBLOB, CALG_AES_256,
                                    {littleEndian({CALG_RSA_KEYX}), reversed(transportedKey)});
        if (!key) return {};
        ask("CryptSetKeyParam KP_IV", [&] { return CryptSetKeyParam(key.get(), KP_IV, iv.data(), 0); });
        return ask("CryptDecrypt, AES", [&] { return CryptoApi::decrypt(key, cipher); });
    }
    Bytes modulus() override
    {
        const Bytes blob = ask("CryptExportKey", [&] {
            return filled([&](BYTE* into, DWORD* size) { return CryptExportKey(key_.get(), 0, PUBLICKEYBLOB, 0, into, size); });
        });
        return reversed(ByteView(blob).last(std::min<std::size_t>(blob.size(), 256)));
    }
    std::vector<Bytes> certificates() override
    {
        return {ask("CryptGetKeyParam KP_CERTIFICATE", [&] { return parameter(CryptGetKeyParam, key_, KP_CERTIFICATE); }),
                ask("CryptGetProvParam PP_CERTCHAIN", [&] { return parameter(CryptGetProvParam, csp_, PP_CERTCHAIN); })};
    }
    void enumerateKeys() override
    {
        ask("CryptGetProvParam PP_ENUMCONTAINERS", [&] {
            Bytes name;
            bool found = false;
            for (DWORD flag = CRYPT_FIRST; !(name = parameter(CryptGetProvParam, csp_, PP_ENUMCONTAINERS, flag)).empty();
                 flag = CRYPT_NEXT)
                found = found || name == bytesOfText(keyName("rsa"));
            return found ? Code{0} : noCode;
        });
    }
    void enterPin() override
    {
        ask("CryptSetProvParam PP_SIGNATURE_PIN", [&] { return setPin(pins[caller_.board.pin]); });
    }
    int enterWrongPins() override
    {
        ++caller_.board.wrongPins;
        return setPin(wrongPin);
    }
    // The driver deletes it, at any time.
    void makeKey() override
    {
        if (caller_.oneIn(4)) ask("CryptGenKey", [&] { return made<CryptKey>(CryptGenKey, csp_.get(), CALG_RSA_SIGN, 0); });
    }

private:
    static Bytes parameter(auto function, const auto& object, DWORD number, DWORD flags = 0)
    {
        return filled([&](BYTE* into, DWORD* size) { return function(object.get(), number, into, size, flags); });
    }
    CryptKey import(CallName call, BYTE type, ALG_ID algorithm, std::initializer_list<ByteView> rest)
    {
        return ask(call, [&] { return csp_.import(keyBlob(type, algorithm, concat(rest)), key_.get()); });
    }
    BOOL setPin(const char* pin) const
    {
        return CryptSetProvParam(csp_.get(), PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin), 0);
    }

    const CryptoApi csp_;
    const CryptKey key_;
};

} // namespace

std::unique_ptr<Session> openCryptoApi(Caller& caller)
{
    CryptoApi csp = caller.ask("CryptAcquireContext", [] { return CryptoApi("rsa"); });
    if (!csp.get()) return nullptr;
    CryptKey key = caller.ask("CryptGetUserKey", [&] { return csp.userKey(AT_KEYEXCHANGE); });
    return key ? std::make_unique<CryptoApiSession>(caller, std::move(csp), std::move(key)) : nullptr;
}

} // namespace quelta::soak
