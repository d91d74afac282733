#include "tools/cms/certificates.h"

#include "base/hex.h"
#include "base/table.h"
#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "common/text.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <string_view>

namespace quelta::tools {

namespace {

constexpr std::string_view pemBegin = "-----BEGIN ";

std::string nameText(const CERT_NAME_BLOB& name)
{
    constexpr DWORD style = CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG;
    CERT_NAME_BLOB copy = name;
    std::wstring text(CertNameToStrW(X509_ASN_ENCODING, &copy, style, nullptr, 0), L'\0');
    const DWORD length = CertNameToStrW(X509_ASN_ENCODING, &copy, style, text.data(), static_cast<DWORD>(text.size()));
    text.resize(length ? length - 1 : 0);
    return text.empty() ? "(no name)" : toUtf8(text);
}

std::string displayName(const CERT_CONTEXT& certificate, DWORD flags)
{
    const auto put = [&](wchar_t* text, DWORD size) {
        return CertGetNameStringW(&certificate, CERT_NAME_SIMPLE_DISPLAY_TYPE, flags, nullptr, text, size);
    };
    std::wstring text(put(nullptr, 0), L'\0');
    const DWORD length = put(text.data(), static_cast<DWORD>(text.size()));
    text.resize(length ? length - 1 : 0);
    return text.empty() ? "(no name)" : toUtf8(text);
}

unsigned modulusBits(const CERT_CONTEXT& certificate)
{
    const CRYPT_BIT_BLOB& key = certificate.pCertInfo->SubjectPublicKeyInfo.PublicKey;
    auto fields = der::Reader(ByteView(key.pbData, key.cbData)).enter(der::tagSequence);
    const auto modulus = fields ? fields->unsignedInteger() : std::nullopt;
    if (!modulus || modulus->empty()) return 0;
    return static_cast<unsigned>(8 * modulus->size()) - static_cast<unsigned>(std::countl_zero(modulus->front()));
}

Bytes decodePem(std::string_view text)
{
    const auto length = static_cast<DWORD>(text.size());
    DWORD size = 0;
    if (!CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64HEADER, nullptr, &size, nullptr, nullptr)) return {};
    Bytes bytes(size);
    if (!CryptStringToBinaryA(text.data(), length, CRYPT_STRING_BASE64HEADER, bytes.data(), &size, nullptr, nullptr)) return {};
    bytes.resize(size);
    return bytes;
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
    // Wincrypt's blobs lack const; those made here are only read.
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
    const std::string_view text = textOf(content);
    if (text.find(pemBegin) == std::string_view::npos) {
        if (auto certificate = parseCertificate(content)) found.push_back(std::move(certificate));
    }
    for (std::size_t at = text.find(pemBegin); at != std::string_view::npos;) {
        const std::size_t next = text.find(pemBegin, at + pemBegin.size());
        if (auto certificate = parseCertificate(decodePem(text.substr(at, next - at)))) found.push_back(std::move(certificate));
        at = next;
    }
    if (found.empty()) throw Failure(nameOf(path) + " holds no certificate; give one in PEM or DER");
    return found;
}

Bytes withoutPem(Bytes content)
{
    if (textOf(content).find(pemBegin) != 0) return content;
    Bytes decoded = decodePem(textOf(content));
    return decoded.empty() ? content : decoded;
}

std::string base64Lines(ByteView bytes)
{
    constexpr DWORD style = CRYPT_STRING_BASE64 | CRYPT_STRING_NOCR;
    const auto length = static_cast<DWORD>(bytes.size());
    DWORD size = 0;
    CryptBinaryToStringA(bytes.data(), length, style, nullptr, &size);
    std::string text(size, '\0');
    if (!CryptBinaryToStringA(bytes.data(), length, style, text.data(), &size)) failWithLastError("can't write PEM");
    text.resize(size);
    return text;
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
    // Not from pCertInfo: there the number stands reversed, and whether a leading zero survives is the system's choice.
    auto outer = der::Reader(encodedOf(certificate)).enter(der::tagSequence);
    auto fields = outer ? outer->enter(der::tagSequence) : std::nullopt;
    if (!fields) return {};
    fields->next(der::explicitTag(0));
    const auto serial = fields->next(der::tagInteger);
    return serial ? serial->content : ByteView();
}

Bytes issuerAndSerial(const CERT_CONTEXT& certificate)
{
    return der::sequence({viewOf(certificate.pCertInfo->Issuer), der::element(der::tagInteger, serialContent(certificate))});
}

std::vector<Bytes> chainFromSystem(const CERT_CONTEXT& certificate)
{
    CERT_CHAIN_PARA parameters{};
    parameters.cbSize = sizeof parameters;
    PCCERT_CHAIN_CONTEXT built = nullptr;
    std::vector<Bytes> found;
    if (!CertGetCertificateChain(nullptr, &certificate, nullptr, nullptr, &parameters, CERT_CHAIN_CACHE_ONLY_URL_RETRIEVAL,
                                 nullptr, &built))
        return found;
    const CertificateChain chain(built);
    const CERT_SIMPLE_CHAIN& simple = *chain->rgpChain[0];
    for (const CERT_CHAIN_ELEMENT* element : std::span(simple.rgpElement, simple.cElement))
        found.push_back(toBytes(encodedOf(*element->pCertContext)));
    return found;
}

Bytes keyIdentifierOf(const CERT_CONTEXT& certificate)
{
    DWORD size = 0;
    if (!CertGetCertificateContextProperty(&certificate, CERT_KEY_IDENTIFIER_PROP_ID, nullptr, &size)) return {};
    Bytes identifier(size);
    if (!CertGetCertificateContextProperty(&certificate, CERT_KEY_IDENTIFIER_PROP_ID, identifier.data(), &size)) return {};
    return identifier;
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
