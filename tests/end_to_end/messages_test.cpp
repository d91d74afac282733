#include "base/provider_name.h"
#include "base/windows_objects.h"
#include "end_to_end/crypto_api.h"
#include "end_to_end/token_test.h"

namespace quelta::test {

namespace {

constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

const Bytes content = bytesOf("What is signed,\r\nin two lines");

// From the root down. Openssl can't read the message as Wine makes it, without the empty sets of its digests and signers.
std::vector<CertificateContext> certificateChain(const Context& context)
{
    Bytes chain(16384);
    auto size = static_cast<DWORD>(chain.size());
    EXPECT_TRUE(CryptGetProvParam(context.get(), PP_CERTCHAIN, chain.data(), &size, 0)) << GetLastError();
    CRYPT_DATA_BLOB blob{size, chain.data()};
    const CertificateStore store(CertOpenStore(CERT_STORE_PROV_PKCS7, encoding, 0, 0, &blob));
    std::vector<CertificateContext> certificates;
    for (PCCERT_CONTEXT at = nullptr; store && (at = CertEnumCertificatesInStore(store.get(), at));)
        certificates.emplace_back(CertDuplicateCertificateContext(at));
    EXPECT_EQ(certificates.size(), 3U);
    return certificates;
}

// The key's certificate, which says where its private key is, as a certificate in the user's store does.
CertificateContext certificateOf(const Context& context, const std::string& label)
{
    Bytes der(3072);
    auto size = static_cast<DWORD>(der.size());
    EXPECT_TRUE(CryptGetKeyParam(userKey(context, AT_SIGNATURE).get(), KP_CERTIFICATE, der.data(), &size, 0)) << GetLastError();
    CertificateContext certificate(CertCreateCertificateContext(encoding, der.data(), size));
    const std::string name = keyName(label);
    std::wstring container(name.begin(), name.end());
    std::wstring provider = wideProviderName;
    CRYPT_KEY_PROV_INFO where{container.data(), provider.data(), PROV_RSA_FULL, 0, 0, nullptr, AT_SIGNATURE};
    EXPECT_TRUE(CertSetCertificateContextProperty(certificate.get(), CERT_KEY_PROV_INFO_PROP_ID, 0, &where)) << GetLastError();
    return certificate;
}

Bytes signMessage(const CertificateContext& signer, const std::vector<CertificateContext>& chain, const char* hash, BOOL detached)
{
    std::vector<PCCERT_CONTEXT> enclosed;
    for (const auto& certificate : chain) enclosed.push_back(certificate.get());
    CRYPT_SIGN_MESSAGE_PARA how{};
    how.cbSize = sizeof how;
    how.dwMsgEncodingType = encoding;
    how.pSigningCert = signer.get();
    how.HashAlgorithm.pszObjId = const_cast<char*>(hash);
    how.cMsgCert = static_cast<DWORD>(enclosed.size());
    how.rgpMsgCert = enclosed.data();
    const BYTE* data = content.data();
    auto size = static_cast<DWORD>(content.size());
    Bytes message(16384);
    auto length = static_cast<DWORD>(message.size());
    EXPECT_TRUE(CryptSignMessage(&how, detached, 1, &data, &size, message.data(), &length)) << std::hex << GetLastError();
    message.resize(length);
    return message;
}

} // namespace

class SystemMessages : public EndToEndTest {};

TEST_F(SystemMessages, OpensslVerifiesWhatTheSystemSigns)
{
    folder.write("content", content);
    for (const std::string label : {"rsa2048", "rsa4096"}) {
        const Context context = openContext(label);
        usePin(context);
        const CertificateContext signer = certificateOf(context, label);
        const auto chain = certificateChain(context);
        for (const char* hash : {szOID_OIWSEC_sha1, szOID_NIST_sha256}) {
            folder.write("attached", signMessage(signer, chain, hash, FALSE));
            folder.write("detached", signMessage(signer, chain, hash, TRUE));
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
