// An open interface, with the token's RSA key. Each function calls and has the answer judged; it returns nothing if the call was
// refused. The most significant byte comes first.
#pragma once

#include "crypto/asymmetric_key.h"
#include "soak/caller.h"

#include <memory>

namespace quelta::soak {

class Session {
public:
    explicit Session(Caller& caller) : caller_(caller) {}
    virtual ~Session() = default;

    // Of a text's SHA-256.
    virtual Bytes sign(ByteView text) = 0;
    virtual void verify(ByteView text, ByteView signature, bool damaged = false) = 0;
    virtual Bytes encrypt(ByteView plain) = 0;
    virtual Bytes decrypt(ByteView cipher) = 0;
    // A key of AES-128, and one that is wrapped.
    virtual void importSecrets(ByteView value, ByteView wrapped) = 0;
    // The key of AES-256 comes encrypted to the token's key.
    virtual Bytes decryptUnder(ByteView transportedKey, ByteView iv, ByteView cipher) = 0;
    virtual Bytes modulus() = 0;
    // One for each way of asking.
    virtual std::vector<Bytes> certificates() = 0;
    virtual void enumerateKeys() = 0;
    virtual void enterPin() = 0;
    // How many were accepted.
    virtual int enterWrongPins() = 0;
    virtual void makeKey() = 0;

protected:
    auto ask(CallName call, auto work) { return caller_.ask(call, work); }

    Caller& caller_;
};

// Null if the session was refused.
std::unique_ptr<Session> openCryptoApi(Caller& caller);
std::unique_ptr<Session> openKeyStorage(Caller& caller);

// Reads the token that soak.sh made, not through the module. Call it before the following.
void readToken();
// Opens one of the interfaces and does some jobs, all drawn by lot.
void useInterface(Caller& caller);
// Enters one in each way, while nobody else calls; the user enters one, too.
void enterWrongPins(Caller& caller);
// False for a signature that does not verify.
bool judgeSignature(const Caller& caller, const softtoken::PublicKey& key, ByteView digest, ByteView signature);
Bytes sha256(ByteView data);

} // namespace quelta::soak
