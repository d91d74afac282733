// Signs a file through CNG key storage, verifies the signature, and writes it. openssl verifies the signature of an RSA key as it
// is:
//   openssl dgst -sha256 -verify PUBLIC-KEY -signature SIGNATURE FILE
#include <windows.h>

#include <bcrypt.h>
#include <ncrypt.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <iterator>
#include <vector>

namespace {

constexpr const wchar_t providerName[] = L"Quelta Cryptographic Provider CSP";

void check(LONG status, const char* what)
{
    if (status == 0) return;
    std::fprintf(stderr, "%s failed: 0x%08lX\n", what, static_cast<unsigned long>(status));
    std::exit(1);
}

// Returns true if the key can sign and has a certificate. Applications identify a signer by the certificate.
bool isSigner(NCRYPT_KEY_HANDLE key)
{
    DWORD usage = 0;
    DWORD size = 0;
    check(NCryptGetProperty(key, L"Key Usage", reinterpret_cast<PBYTE>(&usage), sizeof usage, &size, 0), "Key Usage");
    return (usage & NCRYPT_ALLOW_SIGNING_FLAG) && NCryptGetProperty(key, L"SmartCardKeyCertificate", nullptr, 0, &size, 0) == 0;
}

NCRYPT_KEY_HANDLE openSigner(NCRYPT_PROV_HANDLE provider)
{
    NCRYPT_KEY_HANDLE signer = 0;
    NCryptKeyName* name = nullptr;
    void* state = nullptr;
    SECURITY_STATUS status = 0;
    while (!signer && (status = NCryptEnumKeys(provider, nullptr, &name, &state, 0)) == 0) {
        NCRYPT_KEY_HANDLE key = 0;
        check(NCryptOpenKey(provider, &key, name->pszName, 0, 0), "NCryptOpenKey");
        NCryptFreeBuffer(name);
        if (isSigner(key)) {
            signer = key;
        } else {
            NCryptFreeObject(key);
        }
    }
    NCryptFreeBuffer(state);
    if (signer) return signer;
    if (status != NTE_NO_MORE_ITEMS) check(status, "NCryptEnumKeys");
    std::fputs("The token has no key with a certificate that can sign.\n", stderr);
    std::exit(1);
}

bool isRsa(NCRYPT_KEY_HANDLE key)
{
    wchar_t group[16]{};
    DWORD size = 0;
    check(NCryptGetProperty(key, L"Algorithm Group", reinterpret_cast<PBYTE>(group), sizeof group, &size, 0), "Algorithm Group");
    return std::wcscmp(group, L"RSA") == 0;
}

std::vector<BYTE> sha256(std::vector<BYTE>& data)
{
    BCRYPT_ALG_HANDLE algorithm = nullptr;
    std::vector<BYTE> digest(32);
    check(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA256_ALGORITHM, nullptr, 0), "BCryptOpenAlgorithmProvider");
    check(BCryptHash(algorithm, nullptr, 0, data.data(), static_cast<ULONG>(data.size()), digest.data(), 32), "BCryptHash");
    BCryptCloseAlgorithmProvider(algorithm, 0);
    return digest;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fputs("Usage: sign_with_cng FILE SIGNATURE [PIN]\nWithout a PIN the provider's dialog asks for it.\n", stderr);
        return 2;
    }
    std::ifstream file(argv[1], std::ios::binary);
    std::vector<BYTE> data(std::istreambuf_iterator<char>(file), {});
    if (!file) {
        std::fprintf(stderr, "%s can't be read.\n", argv[1]);
        return 1;
    }
    std::vector<BYTE> digest = sha256(data);

    NCRYPT_PROV_HANDLE provider = 0;
    check(NCryptOpenStorageProvider(&provider, providerName, 0), "NCryptOpenStorageProvider");
    const NCRYPT_KEY_HANDLE key = openSigner(provider);
    // 8-bit characters and a zero, not UTF-16.
    if (argc > 3) {
        const DWORD pinSize = static_cast<DWORD>(std::strlen(argv[3]) + 1);
        check(NCryptSetProperty(key, L"SmartCardPin", reinterpret_cast<PBYTE>(argv[3]), pinSize, 0), "Giving the PIN");
    }

    // RSA signatures are PKCS#1 v1.5. The size query answers too little for a key on a curve: bring room for any signature.
    BCRYPT_PKCS1_PADDING_INFO pkcs1{BCRYPT_SHA256_ALGORITHM};
    void* const padding = isRsa(key) ? &pkcs1 : nullptr;
    const DWORD flags = padding ? BCRYPT_PAD_PKCS1 : 0;
    std::vector<BYTE> signature(512);
    DWORD size = 0;
    check(NCryptSignHash(key, padding, digest.data(), 32, signature.data(), 512, &size, flags), "NCryptSignHash");
    check(NCryptVerifySignature(key, padding, digest.data(), 32, signature.data(), size, flags), "NCryptVerifySignature");
    NCryptFreeObject(key);
    NCryptFreeObject(provider);

    std::ofstream output(argv[2], std::ios::binary);
    if (!output.write(reinterpret_cast<const char*>(signature.data()), size).flush()) {
        std::fprintf(stderr, "%s can't be written.\n", argv[2]);
        return 1;
    }
    std::printf("%lu bytes\n", size);
    return 0;
}
