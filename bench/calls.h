#pragma once

#include "module.h"

#include "base/bytes.h"

#include <functional>
#include <vector>

namespace quelta::bench {

// A call of applications through one interface.
struct Operation {
    const char* interfaceName;
    const char* name;
    std::function<void()> call;
    // Makes the device library's calls that `call` needs; empty if there are none.
    std::function<void()> bare;
};

// The module with a context, a provider and a key pair open on both sides, and the PIN given.
class OpenModule {
public:
    explicit OpenModule(const std::string& pin);
    ~OpenModule();
    OpenModule(const OpenModule&) = delete;
    OpenModule& operator=(const OpenModule&) = delete;

    const CryptoApiExports& csp() const { return csp_; }
    const KeyStorageFunctionTable& ksp() const { return module_.table(); }
    HCRYPTPROV context() const { return context_; }
    NCRYPT_PROV_HANDLE provider() const { return provider_; }

    // All operations use the token's last key pair.
    HCRYPTPROV acquire() const;
    NCRYPT_KEY_HANDLE openKey() const;

    // The calls refer to this object.
    std::vector<Operation> operations();

private:
    HCRYPTHASH hashOf(ByteView data) const;
    void digest(ByteView data);
    void hashAndSign();
    void hashAndVerify();
    void bareHash(ByteView data);
    void bareSign();
    void bareVerify();
    void bareDecrypt();

    Module module_;
    CryptoApiExports csp_;
    std::string pin_;
    std::string device_;
    std::string container_;
    Bytes keyId_;
    Bytes publicKey_;

    HCRYPTPROV context_ = 0;
    HCRYPTKEY key_ = 0;
    NCRYPT_PROV_HANDLE provider_ = 0;
    NCRYPT_KEY_HANDLE storedKey_ = 0;

    Bytes large_ = Bytes(65536, 0x61);
    Bytes digest_ = Bytes(32, 0x62);
    // CryptoAPI's signatures and cipher texts have the last byte first.
    Bytes signature_ = Bytes(512);
    Bytes cipher_ = Bytes(512);
    Bytes storedSignature_;
    Bytes storedCipher_;
    Bytes work_ = Bytes(8192);
};

} // namespace quelta::bench
