// The user's certificate stores, where applications look. The tool marks its certificates, and touches no others.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <string>
#include <vector>

namespace quelta::tools {

// The place of a certificate's private key, as in CERT_KEY_PROV_INFO_PROP_ID.
struct KeyPlace {
    std::string container;
    // PROV_RSA_FULL, or 0 for key storage.
    DWORD providerType;
    DWORD keySpec;
};

enum class Placed { added, unchanged, somebodyElses };

class UserStore {
public:
    // Opens "My" or "CA". Throws a Failure.
    explicit UserStore(const wchar_t* name);

    // `place` is null for an issuer's certificate, which has no key.
    Placed put(ByteView certificate, const KeyPlace* place);
    // Returns whether the store has the certificate with this provider's key.
    bool leadsToProvider(ByteView certificate) const;
    // Returns the certificates with the tool's mark.
    std::vector<Bytes> marked() const;
    void remove(ByteView certificate);

private:
    CertificateContext find(ByteView certificate) const;

    std::wstring name_;
    CertificateStore store_;
};

} // namespace quelta::tools
