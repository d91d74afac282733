// Signatures over "signed content\n" made with another implementation: by RSA with and without signed attributes, and by P-384.
#pragma once

#include "tools/cms/certificates.h"
#include "tools/console/files.h"

namespace quelta::tools {

inline Bytes signatureIn(const std::string& name)
{
    return withoutPem(readSmallFile(QUELTA_SIGNATURES_DIR "/" + name + ".pem"));
}

// Returns the signer's certificate.
inline CertificateContext certificateIn(const std::string& name)
{
    const Bytes der = signatureIn(name);
    const CRYPT_DATA_BLOB blob = blobOf(der);
    const CertificateStore store(CertOpenStore(CERT_STORE_PROV_PKCS7, certificateEncoding, 0, 0, &blob));
    return CertificateContext(CertEnumCertificatesInStore(store.get(), nullptr));
}

} // namespace quelta::tools
