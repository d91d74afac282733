#include "end_to_end/token_test.h"

#include <cstdlib>

namespace quelta::test {

// quelta.sh runs this as an application that knows nothing of the token. It finds a certificate in the user's store by its
// subject, and signs a file with crypt32, detached.
TEST(OneProcess, DISABLED_SignsWithACertificateOfTheStore)
{
    const CertificateStore store(CertOpenSystemStoreA(0, "MY"));
    const CertificateContext certificate(CertFindCertificateInStore(store.get(), X509_ASN_ENCODING, 0, CERT_FIND_SUBJECT_STR_A,
                                                                    std::getenv("QUELTA_SUBJECT"), nullptr));
    ASSERT_TRUE(certificate) << "there is no such certificate";
    HCRYPTPROV provider = 0;
    DWORD spec = 0;
    BOOL release = FALSE;
    ASSERT_TRUE(CryptAcquireCertificatePrivateKey(certificate.get(), 0, nullptr, &provider, &spec, &release));
    // The context is not released, since an unloaded provider forgets the PIN.
    ASSERT_TRUE(CryptSetProvParam(provider, PP_SIGNATURE_PIN, dataOf(bytesOfText(tokenPin)), 0));

    PCCERT_CONTEXT enclosed = certificate.get();
    CRYPT_SIGN_MESSAGE_PARA how{};
    how.cbSize = sizeof how;
    how.dwMsgEncodingType = certificateEncoding;
    how.pSigningCert = enclosed;
    how.HashAlgorithm.pszObjId = const_cast<char*>(szOID_NIST_sha256);
    how.cMsgCert = 1;
    how.rgpMsgCert = &enclosed;
    const Bytes content = contentOf("data");
    const BYTE* data = content.data();
    DWORD dataSize = sizeOf(content);
    const Bytes signature =
        filled([&](BYTE* into, DWORD* size) { return CryptSignMessage(&how, TRUE, 1, &data, &dataSize, into, size); });
    ASSERT_FALSE(signature.empty()) << GetLastError();
    std::ofstream("theirs", std::ios::binary) << toText(signature);
}

// quelta.sh runs this as a user who cancels the dialog of another process once.
TEST(OneProcess, DISABLED_CancelsThePinDialog)
{
    HWND dialog = nullptr;
    for (int tries = 0; tries < 1000 && !IsWindowVisible(dialog); ++tries, Sleep(20)) dialog = FindWindowA(nullptr, pinCaption);
    ASSERT_TRUE(dialog);
    PinDialog(dialog).pressCancel();
}

} // namespace quelta::test
