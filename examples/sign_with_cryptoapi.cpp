// Signs a file through CryptoAPI, verifies the signature, and writes it most significant byte first, as openssl wants it:
//   openssl dgst -sha256 -verify PUBLIC-KEY -signature SIGNATURE FILE
#include <windows.h>

#include <wincrypt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

constexpr const char provider[] = "Quelta Cryptographic Provider CSP";

[[noreturn]] void fail(const char* what)
{
    std::fprintf(stderr, "%s failed: 0x%08lX\n", what, GetLastError());
    std::exit(1);
}

HCRYPTPROV acquire(const char* container)
{
    HCRYPTPROV context = 0;
    if (!CryptAcquireContextA(&context, container, provider, PROV_RSA_FULL, 0)) fail("CryptAcquireContext");
    return context;
}

// Returns true if the container has an RSA key that can sign and has a certificate. Applications identify a signer by the
// certificate. openssl expects another form of signature from a key on an elliptic curve.
bool hasSigningCertificate(HCRYPTPROV context)
{
    HCRYPTKEY key = 0;
    if (!CryptGetUserKey(context, AT_SIGNATURE, &key)) return false;
    ALG_ID algorithm = 0;
    DWORD algorithmSize = sizeof algorithm, size = 0;
    const bool found = CryptGetKeyParam(key, KP_ALGID, reinterpret_cast<BYTE*>(&algorithm), &algorithmSize, 0) &&
                       algorithm == CALG_RSA_SIGN && CryptGetKeyParam(key, KP_CERTIFICATE, nullptr, &size, 0);
    CryptDestroyKey(key);
    return found;
}

// A container has the name of its key. The first flag must be CRYPT_FIRST alone, all others CRYPT_NEXT alone.
HCRYPTPROV acquireSigner()
{
    const HCRYPTPROV list = acquire(nullptr);
    char name[64];
    DWORD size = sizeof name;
    for (DWORD flag = CRYPT_FIRST; CryptGetProvParam(list, PP_ENUMCONTAINERS, reinterpret_cast<BYTE*>(name), &size, flag);
         flag = CRYPT_NEXT, size = sizeof name) {
        const HCRYPTPROV context = acquire(name);
        if (hasSigningCertificate(context)) {
            CryptReleaseContext(list, 0);
            return context;
        }
        CryptReleaseContext(context, 0);
    }
    std::fputs("The token has no RSA key with a certificate that can sign.\n", stderr);
    std::exit(1);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs("Usage: sign_with_cryptoapi FILE SIGNATURE [PIN]\nWithout a PIN the provider's dialog asks for it.\n", stderr);
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    const std::vector<char> data(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        std::fprintf(stderr, "%s can't be read.\n", argv[1]);
        return 1;
    }
    const HCRYPTPROV context = acquireSigner();
    // 8-bit characters and a zero. The length is not passed.
    if (argc > 3 && !CryptSetProvParam(context, PP_SIGNATURE_PIN, reinterpret_cast<const BYTE*>(argv[3]), 0))
        fail("Giving the PIN");

    HCRYPTHASH hash = 0;
    if (!CryptCreateHash(context, CALG_SHA_256, 0, 0, &hash)) fail("CryptCreateHash");
    if (!CryptHashData(hash, reinterpret_cast<const BYTE*>(data.data()), static_cast<DWORD>(data.size()), 0))
        fail("CryptHashData");
    // The size query tells 256 for small keys, too. Go by the length that comes back.
    DWORD size = 0;
    if (!CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, nullptr, &size)) fail("CryptSignHash");
    std::vector<BYTE> signature(size);
    if (!CryptSignHashA(hash, AT_SIGNATURE, nullptr, 0, signature.data(), &size)) fail("CryptSignHash");
    signature.resize(size);

    HCRYPTKEY key = 0;
    if (!CryptGetUserKey(context, AT_SIGNATURE, &key)) fail("CryptGetUserKey");
    if (!CryptVerifySignatureA(hash, signature.data(), size, key, nullptr, 0)) fail("CryptVerifySignature");
    CryptDestroyKey(key);
    CryptDestroyHash(hash);
    CryptReleaseContext(context, 0);

    std::ranges::reverse(signature);
    std::ofstream output(argv[2], std::ios::binary);
    if (!output.write(reinterpret_cast<const char*>(signature.data()), size).flush()) {
        std::fprintf(stderr, "%s can't be written.\n", argv[2]);
        return 1;
    }
    std::printf("%lu bytes\n", size);
    return 0;
}
