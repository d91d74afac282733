#include "formats/certificate_maker.h"

#include "crypto/bcrypt_objects.h"
#include "crypto/key_encoding.h"
#include "formats/distinguished_name.h"
#include "token/device_records.h"

#include <windows.h>

#include <wincrypt.h>

#include <list>

namespace quelta::softtoken {

namespace {

constexpr DWORD authorityBits = 2048;
constexpr std::size_t serialSize = 16;
constexpr std::uint64_t minute = 60ULL * 10'000'000;
constexpr int year = 365;

void require(BOOL done, const char* what)
{
    if (!done) throw TokenError(std::string(what) + " was refused by the system, error " + std::to_string(GetLastError()));
}

// Calls twice: for the size, and with a room for it.
Bytes filled(const char* what, auto call)
{
    DWORD size = 0;
    require(call(nullptr, &size), what);
    Bytes bytes(size);
    require(call(bytes.data(), &size), what);
    bytes.resize(size);
    return bytes;
}

Bytes encoded(const char* structure, const void* value)
{
    return filled("encoding a certificate", [&](BYTE* room, DWORD* size) {
        return CryptEncodeObjectEx(X509_ASN_ENCODING, structure, value, 0, nullptr, room, size);
    });
}

template <class Blob = CRYPT_DATA_BLOB>
Blob blobOf(ByteView bytes)
{
    return {lengthOf(bytes), dataOf(bytes)};
}

// Something that a certificate names: an authority, or the holder of the token's key.
class Subject {
public:
    // The key as crypt32 has it, in one block with what it points to.
    Subject(const std::string& name, Bytes key) : name_(encodeName(name)), key_(std::move(key)) {}

    CERT_NAME_BLOB name() const { return blobOf(name_); }
    const CERT_PUBLIC_KEY_INFO& key() const { return *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(key_.data()); }
    Bytes keyIdentifier() const { return digest(sha1, {key().PublicKey.pbData, key().PublicKey.cbData}); }

private:
    Bytes name_;
    Bytes key_;
};

Bytes publicKeyInfo(const PublicKey& key)
{
    const Bytes der = encodePublicKey(key);
    return filled("reading a public key", [&](BYTE* room, DWORD* size) {
        return CryptDecodeObjectEx(X509_ASN_ENCODING, X509_PUBLIC_KEY_INFO, der.data(), lengthOf(der), 0, nullptr, room, size);
    });
}

// A key of the system's own provider, gone with this.
class SigningKey {
public:
    SigningKey()
    {
        require(CryptAcquireContextW(&provider_, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT), "the system's provider");
        HCRYPTKEY key = 0;
        if (CryptGenKey(provider_, AT_SIGNATURE, authorityBits << 16, &key)) CryptDestroyKey(key);
    }
    ~SigningKey() { CryptReleaseContext(provider_, 0); }
    SigningKey(const SigningKey&) = delete;
    SigningKey& operator=(const SigningKey&) = delete;

    Bytes publicKey() const
    {
        return filled("making an authority's key", [&](BYTE* room, DWORD* size) {
            return CryptExportPublicKeyInfo(provider_, AT_SIGNATURE, X509_ASN_ENCODING,
                                            reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(room), size);
        });
    }
    Bytes sign(CERT_INFO& content) const
    {
        return filled("signing a certificate", [&](BYTE* room, DWORD* size) {
            return CryptSignAndEncodeCertificate(provider_, AT_SIGNATURE, X509_ASN_ENCODING, X509_CERT_TO_BE_SIGNED, &content,
                                                 &content.SignatureAlgorithm, nullptr, room, size);
        });
    }

private:
    HCRYPTPROV provider_ = 0;
};

struct Authority {
    SigningKey signer;
    Subject subject;
    explicit Authority(const std::string& name) : subject(name, signer.publicKey()) {}
};

class Extensions {
public:
    void add(const char* oid, bool critical, const char* structure, const void* value)
    {
        const Bytes& kept = values_.emplace_back(encoded(structure, value));
        items_.push_back({const_cast<char*>(oid), critical, blobOf<CRYPT_OBJID_BLOB>(kept)});
    }
    void addKeyUsage(BYTE bits)
    {
        CRYPT_BIT_BLOB blob{1, &bits, 0};
        while ((bits >> blob.cUnusedBits & 1) == 0) ++blob.cUnusedBits;
        add(szOID_KEY_USAGE, true, X509_KEY_USAGE, &blob);
    }
    void addConstraints(CERT_BASIC_CONSTRAINTS2_INFO constraints)
    {
        add(szOID_BASIC_CONSTRAINTS2, true, X509_BASIC_CONSTRAINTS2, &constraints);
    }
    void addKeyIdentifiers(const Subject& subject, const Subject& issuer)
    {
        const Bytes own = subject.keyIdentifier();
        const Bytes authority = issuer.keyIdentifier();
        const auto ownBlob = blobOf(own);
        CERT_AUTHORITY_KEY_ID2_INFO authorityInfo{};
        authorityInfo.KeyId = blobOf(authority);
        add(szOID_SUBJECT_KEY_IDENTIFIER, false, X509_OCTET_STRING, &ownBlob);
        add(szOID_AUTHORITY_KEY_IDENTIFIER2, false, X509_AUTHORITY_KEY_ID2, &authorityInfo);
    }
    std::vector<CERT_EXTENSION>& items() { return items_; }

private:
    std::list<Bytes> values_;
    std::vector<CERT_EXTENSION> items_;
};

Extensions authorityExtensions(CERT_BASIC_CONSTRAINTS2_INFO constraints)
{
    Extensions extensions;
    extensions.addConstraints(constraints);
    extensions.addKeyUsage(CERT_KEY_CERT_SIGN_KEY_USAGE | CERT_CRL_SIGN_KEY_USAGE);
    return extensions;
}

Extensions leafExtensions(std::uint32_t usage)
{
    char clientAuth[] = szOID_PKIX_KP_CLIENT_AUTH;
    char emailProtection[] = szOID_PKIX_KP_EMAIL_PROTECTION;
    char* purposes[] = {clientAuth, emailProtection};
    const CERT_ENHKEY_USAGE enhanced{2, purposes};
    Extensions extensions;
    extensions.addConstraints({});
    extensions.addKeyUsage(
        static_cast<BYTE>(((usage & usageSigning) != 0 ? CERT_DIGITAL_SIGNATURE_KEY_USAGE | CERT_NON_REPUDIATION_KEY_USAGE : 0) |
                          ((usage & usageKeyExchange) != 0 ? CERT_KEY_ENCIPHERMENT_KEY_USAGE : 0)));
    extensions.add(szOID_ENHANCED_KEY_USAGE, false, X509_ENHANCED_KEY_USAGE, &enhanced);
    return extensions;
}

// Least significant byte first; neither negative nor with zeros in front.
Bytes newSerial()
{
    Bytes serial = randomBytes(serialSize);
    serial.back() = static_cast<unsigned char>((serial.back() & 0x7F) | 0x40);
    return serial;
}

FILETIME fileTime(std::uint64_t time)
{
    return {static_cast<DWORD>(time & 0xFFFFFFFFU), static_cast<DWORD>(time >> 32)};
}

// Clocks differ: a certificate that begins now would not be valid yet elsewhere.
std::uint64_t aWhileAgo()
{
    FILETIME now{};
    GetSystemTimeAsFileTime(&now);
    return (std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime) - 10 * minute;
}

Bytes certify(const Authority& issuer, const Subject& subject, int days, Extensions extensions)
{
    extensions.addKeyIdentifiers(subject, issuer.subject);
    const Bytes serial = newSerial();
    char algorithm[] = szOID_RSA_SHA256RSA;
    const std::uint64_t begin = aWhileAgo();
    CERT_INFO info{};
    info.dwVersion = CERT_V3;
    info.SerialNumber = blobOf(serial);
    info.SignatureAlgorithm.pszObjId = algorithm;
    info.Issuer = issuer.subject.name();
    info.NotBefore = fileTime(begin);
    info.NotAfter = fileTime(begin + static_cast<std::uint64_t>(days) * 24 * 60 * minute);
    info.Subject = subject.name();
    info.SubjectPublicKeyInfo = subject.key();
    info.cExtension = static_cast<DWORD>(extensions.items().size());
    info.rgExtension = extensions.items().data();
    return issuer.signer.sign(info);
}

} // namespace

Chain makeChain(const ChainRequest& request)
{
    const Authority root(request.root);
    const Authority issuing(request.issuer);
    const Subject holder(request.subject, publicKeyInfo(request.key));
    constexpr CERT_BASIC_CONSTRAINTS2_INFO anyAuthority{TRUE, FALSE, 0};
    constexpr CERT_BASIC_CONSTRAINTS2_INFO lastAuthority{TRUE, TRUE, 0};
    return {certify(issuing, holder, request.days, leafExtensions(request.usage)),
            certify(root, issuing.subject, request.days + year, authorityExtensions(lastAuthority)),
            certify(root, root.subject, request.days + 2 * year, authorityExtensions(anyAuthority))};
}

} // namespace quelta::softtoken
