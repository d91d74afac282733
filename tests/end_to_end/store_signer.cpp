// An application that knows nothing of the token: it finds a certificate in the user's store by its subject, and signs a file
// with crypt32, detached. store_signer SUBJECT FILE SIGNATURE PIN; 3 where there is no such certificate.
#include <windows.h>

#include <wincrypt.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

int fail(const char* what)
{
    std::fprintf(stderr, "%s: 0x%08lX\n", what, GetLastError());
    return 1;
}

bool givePin(PCCERT_CONTEXT certificate, const char* pin)
{
    HCRYPTPROV provider = 0;
    DWORD spec = 0;
    BOOL release = FALSE;
    // Not released: the provider forgets the PIN when it is unloaded.
    return CryptAcquireCertificatePrivateKey(certificate, 0, nullptr, &provider, &spec, &release) &&
           CryptSetProvParam(provider, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(pin), 0);
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 5) return 2;
    const HCERTSTORE store = CertOpenSystemStoreA(0, "MY");
    const PCCERT_CONTEXT certificate =
        CertFindCertificateInStore(store, X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_A, arguments[1], nullptr);
    if (!certificate) return 3;
    if (!givePin(certificate, arguments[4])) return fail("no private key");

    std::ifstream file(arguments[2], std::ios::binary);
    const std::string content{std::istreambuf_iterator<char>(file), {}};
    CRYPT_SIGN_MESSAGE_PARA how{};
    how.cbSize = sizeof how;
    how.dwMsgEncodingType = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;
    how.pSigningCert = certificate;
    how.HashAlgorithm.pszObjId = const_cast<char*>(szOID_NIST_sha256);
    how.cMsgCert = 1;
    how.rgpMsgCert = const_cast<PCCERT_CONTEXT*>(&certificate);
    const auto* data = reinterpret_cast<const BYTE*>(content.data());
    auto size = static_cast<DWORD>(content.size());
    std::vector<BYTE> message(16384);
    auto length = static_cast<DWORD>(message.size());
    if (!CryptSignMessage(&how, TRUE, 1, &data, &size, message.data(), &length)) return fail("can't sign");
    std::ofstream(arguments[3], std::ios::binary)
        .write(reinterpret_cast<const char*>(message.data()), static_cast<std::streamsize>(length));
    return 0;
}
