#include "tools/cms/certificates.h"

#include "base/hex.h"
#include "base/table.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "common/pem.h"
#include "common/text.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

#include <algorithm>
#include <bit>
#include <string_view>

namespace quelta::tools {

namespace {

// Calls put(text, size), which returns the length with the terminating zero.
template <class Put>
std::string nameBy(Put put)
{
    std::wstring text(put(nullptr, 0), L'\0');
    const DWORD length = put(text.data(), static_cast<DWORD>(text.size()));
    text.resize(length ? length - 1 : 0);
    return text.empty() ? "(no name)" : toUtf8(text);
}

std::string nameText(CERT_NAME_BLOB name)
{
    constexpr DWORD style = CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG;
    return nameBy([&](wchar_t* text, DWORD size) { return CertNameToStrW(X509_ASN_ENCODING, &name, style, text, size); });
}

std::string displayName(const CERT_CONTEXT& certificate, DWORD flags)
{
    return nameBy([&](wchar_t* text, DWORD size) {
        return CertGetNameStringW(&certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr, text, size);
    });
}

unsigned modulusBits(const CERT_CONTEXT& certificate)
{
    const CRYPT_BIT_BLOB& key = certificate.pCertInfo->SubjectPublicKeyInfo.PublicKey;
    auto fields = der::Reader(ByteView(key.pbData, key.cbData)).enter(der::tagSequence);
    const auto modulus = fields ? fields->unsignedInteger() : std::nullopt;
    if (!modulus || modulus->empty()) return 0;
    return static_cast<unsigned>(8 * modulus->size()) - static_cast<unsigned>(std::countl_zero(modulus->front()));
}

std::string_view textOf(const Bytes& content)
{
    return {reinterpret_cast<const char*>(content.data()), content.size()};
}

} // namespace

ByteView viewOf(const CRYPT_DATA_BLOB& blob)
{
    return {blob.pbData, blob.cbData};
}

CRYPT_DATA_BLOB blobOf(ByteView bytes)
{
    // Wincrypt's blobs lack const. Windows only reads this one.
    return {static_cast<DWORD>(bytes.size()), const_cast<BYTE*>(bytes.data())};
}

ByteView encodedOf(const CERT_CONTEXT& certificate)
{
    return {certificate.pbCertEncoded, certificate.cbCertEncoded};
}

CertificateContext parseCertificate(ByteView der)
{
    return CertificateContext(CertCreateCertificateContext(certificateEncoding, der.data(), static_cast<DWORD>(der.size())));
}

std::vector<CertificateContext> readCertificates(const std::filesystem::path& path)
{
    const Bytes content = readSmallFile(path);
    std::vector<CertificateContext> found;
    for (const PemBlock& block : pemBlocks(textOf(content)).value_or(std::vector<PemBlock>()))
        if (auto certificate = parseCertificate(block.bytes)) found.push_back(std::move(certificate));
    if (auto certificate = found.empty() ? parseCertificate(content) : CertificateContext())
        found.push_back(std::move(certificate));
    if (found.empty()) throw Failure(nameOf(path) + " holds no certificate; give one in PEM or DER");
    return found;
}

Bytes withoutPem(Bytes content)
{
    if (!textOf(content).starts_with("-----BEGIN ")) return content;
    auto blocks = pemBlocks(textOf(content));
    return blocks && !blocks->empty() ? std::move(blocks->front().bytes) : content;
}

std::string displayNameOf(const CERT_CONTEXT& certificate)
{
    return displayName(certificate, 0);
}

std::string displayIssuerOf(const CERT_CONTEXT& certificate)
{
    return displayName(certificate, CERT_NAME_ISSUER_FLAG);
}

std::string subjectOf(const CERT_CONTEXT& certificate)
{
    return nameText(certificate.pCertInfo->Subject);
}

std::string issuerOf(const CERT_CONTEXT& certificate)
{
    return nameText(certificate.pCertInfo->Issuer);
}

std::string serialOf(const CERT_CONTEXT& certificate)
{
    return toHex(serialContent(certificate));
}

ByteView serialContent(const CERT_CONTEXT& certificate)
{
    // pCertInfo will not do: it has the number reversed, and may drop a leading zero.
    auto outer = der::Reader(encodedOf(certificate)).enter(der::tagSequence);
    auto fields = outer ? outer->enter(der::tagSequence) : std::nullopt;
    if (!fields) return {};
    fields->next(der::explicitTag(0));
    const auto serial = fields->next(der::tagInteger);
    return serial ? serial->content : ByteView();
}

std::string validityAt(const CERT_CONTEXT& certificate, const FILETIME& time)
{
    FILETIME copy = time;
    const LONG where = CertVerifyTimeValidity(&copy, certificate.pCertInfo);
    if (where == 0) return "valid";
    return where > 0 ? "expired" : "not yet valid";
}

std::string validityFault(const CERT_CONTEXT& certificate, const FILETIME& time)
{
    const std::string state = validityAt(certificate, time);
    if (state == "valid") return {};
    if (state == "expired") return "expired on " + timeText(certificate.pCertInfo->NotAfter);
    return "is not valid before " + timeText(certificate.pCertInfo->NotBefore);
}

bool mayBeUsedFor(const CERT_CONTEXT& certificate, BYTE usage)
{
    BYTE stated[2]{};
    return !CertGetIntendedKeyUsage(X509_ASN_ENCODING, certificate.pCertInfo, stated, sizeof stated) || (stated[0] & usage);
}

Bytes issuerAndSerial(const CERT_CONTEXT& certificate)
{
    return der::sequence({viewOf(certificate.pCertInfo->Issuer), der::element(der::tagInteger, serialContent(certificate))});
}

bool isNamedBy(const CERT_CONTEXT& certificate, const der::Element& name)
{
    if (name.tag != der::implicitTag(0)) return sameBytes(name.whole, issuerAndSerial(certificate));
    return !name.content.empty() && sameBytes(name.content, propertyOf(certificate, CERT_KEY_IDENTIFIER_PROP_ID));
}

Bytes propertyOf(const CERT_CONTEXT& certificate, DWORD property)
{
    return fetched(
        [&](BYTE* value, DWORD* size) { return CertGetCertificateContextProperty(&certificate, property, value, size); });
}

bool isSelfIssued(const CERT_CONTEXT& certificate)
{
    return sameBytes(viewOf(certificate.pCertInfo->Subject), viewOf(certificate.pCertInfo->Issuer));
}

std::string nameOf(const PublicKeyKind& kind)
{
    return kind.elliptic ? "P-" + std::to_string(kind.bits) : "RSA";
}

std::optional<PublicKeyKind> publicKeyKind(const CERT_CONTEXT& certificate)
{
    const CRYPT_ALGORITHM_IDENTIFIER& algorithm = certificate.pCertInfo->SubjectPublicKeyInfo.Algorithm;
    const std::string_view kind = algorithm.pszObjId;
    if (kind == oid::rsaEncryption) return PublicKeyKind{false, 0, modulusBits(certificate)};
    if (kind != oid::ecPublicKey) return std::nullopt;
    const auto named = der::Reader(viewOf(algorithm.Parameters)).oid();
    const KnownCurve* curve = named ? findRow(knownCurves, &KnownCurve::oid, *named) : nullptr;
    if (!curve) return std::nullopt;
    return PublicKeyKind{true, curve->coordinateSize(), static_cast<unsigned>(curve->bits)};
}

bool holdsRsaKey(const CERT_CONTEXT& certificate)
{
    const auto kind = publicKeyKind(certificate);
    return kind && !kind->elliptic;
}

} // namespace quelta::tools
