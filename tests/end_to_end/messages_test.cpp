#include "base/provider_name.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

// Crypt32 as mail programs call it, with the token's certificates and its key.
class SystemMessages : public TokenTest {
protected:
    // From the root down. Openssl can't read the message as Wine makes it, without the empty sets of its digests and signers.
    static std::vector<CertificateContext> certificateChain(const CryptoApi& csp)
    {
        Bytes chain = filled([&](BYTE* into, DWORD* size) { return CryptGetProvParam(csp.get(), PP_CERTCHAIN, into, size, 0); });
        CRYPT_DATA_BLOB blob{static_cast<DWORD>(chain.size()), chain.data()};
        const CertificateStore store(CertOpenStore(CERT_STORE_PROV_PKCS7, certificateEncoding, 0, 0, &blob));
        std::vector<CertificateContext> certificates;
        for (PCCERT_CONTEXT at = nullptr; (at = CertEnumCertificatesInStore(store.get(), at));)
            certificates.emplace_back(CertDuplicateCertificateContext(at));
        EXPECT_EQ(certificates.size(), 3U);
        return certificates;
    }
    // The key's certificate, which says where its private key is, as a certificate in the user's store does.
    static CertificateContext certificateOf(const CryptoApi& csp, const std::string& label)
    {
        const CryptKey key = csp.userKey();
        const Bytes der =
            filled([&](BYTE* into, DWORD* size) { return CryptGetKeyParam(key.get(), KP_CERTIFICATE, into, size, 0); }, 3072);
        CertificateContext certificate(
            CertCreateCertificateContext(certificateEncoding, der.data(), static_cast<DWORD>(der.size())));
        std::wstring container = toWide(keyName(label)), provider = wideProviderName;
        CRYPT_KEY_PROV_INFO where{container.data(), provider.data(), PROV_RSA_FULL, 0, 0, nullptr, AT_SIGNATURE};
        EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &where));
        return certificate;
    }
};

TEST_F(SystemMessages, OpensslVerifiesWhatTheSystemSigns)
{
    const Bytes content = toBytes("What is signed,\r\nin two lines");
    folder.write("content", content);
    for (const std::string label : {"rsa2048", "rsa4096"}) {
        const CryptoApi csp(label);
        const CertificateContext signer = certificateOf(csp, label);
        const auto chain = certificateChain(csp);
        std::vector<PCCERT_CONTEXT> enclosed;
        for (const auto& certificate : chain) enclosed.push_back(certificate.get());
        CRYPT_SIGN_MESSAGE_PARA how{};
        how.cbSize = sizeof how;
        how.dwMsgEncodingType = certificateEncoding;
        how.pSigningCert = signer.get();
        how.cMsgCert = static_cast<DWORD>(enclosed.size());
        how.rgpMsgCert = enclosed.data();
        for (const char* hash : {szOID_OIWSEC_sha1, szOID_NIST_sha256}) {
            how.HashAlgorithm.pszObjId = const_cast<char*>(hash);
            for (const BOOL detached : {FALSE, TRUE}) {
                const BYTE* data = content.data();
                auto dataSize = static_cast<DWORD>(content.size());
                folder.write(detached ? "detached" : "attached", filled([&](BYTE* into, DWORD* size) {
                                 return CryptSignMessage(&how, detached, 1, &data, &dataSize, into, size);
                             }));
            }
            EXPECT_TRUE(folder.shell("verify='openssl cms -verify -binary -inform DER -purpose any -out got -CAfile '$shared/" +
                                     label + ".root.pem\n" +
                                     "$verify -in attached && cmp got content\n"
                                     "$verify -in detached -content content\n"
                                     "cp content other && echo >>other\n"
                                     "refuses $verify -in detached -content other"));
        }
    }
}

} // namespace quelta::test
