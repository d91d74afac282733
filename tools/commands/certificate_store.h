// The user's certificate stores, where applications look: what the tool put there it marks, and touches nothing else.
#pragma once

#include "base/bytes.h"
#include "base/windows_objects.h"

#include <string>
#include <vector>

namespace quelta::tools {

// Where a certificate's private key is, as CERT_KEY_PROV_INFO_PROP_ID has it.
struct KeyPlace {
    std::string container;
    // PROV_RSA_FULL, or 0 for key storage.
    DWORD providerType;
    DWORD keySpec;
};

enum class Placed { added, unchanged, somebodyElses };

class UserStore {
public:
    // "My", "CA". Throws a Failure.
    explicit UserStore(const wchar_t* name);

    // `place` is null for an issuer's certificate, which has no key.
    Placed put(ByteView certificate, const KeyPlace* place);
    // Whether it is there, and leads to this provider.
    bool leadsToProvider(ByteView certificate) const;
    // The certificates with the mark.
    std::vector<Bytes> marked() const;
    void remove(ByteView certificate);

private:
    CertificateContext find(ByteView certificate) const;

    std::wstring name_;
    CertificateStore store_;
};

} // namespace quelta::tools
