#include "formats/certificate.h"

#include "crypto/primitives.h"
#include "formats/byte_text.h"
#include "formats/der.h"
#include "store/token_error.h"

#include <windows.h>

#include <wincrypt.h>

#include <string_view>

namespace quelta::softtoken {

namespace {

std::string timeText(DerReader& validity)
{
    const bool twoDigitYear = validity.nextIs(tag::utcTime);
    std::string text = textOf(validity.content(twoDigitYear ? tag::utcTime : tag::generalizedTime));
    if (twoDigitYear) text.insert(0, text < "50" ? "20" : "19");
    if (text.size() != 15 || text.back() != 'Z')
        throw TokenError(Result::badData, "a certificate's time is not written as it must be");
    const auto part = [&](std::size_t from, std::size_t count) { return text.substr(from, count); };
    return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(8, 2) + ":" + part(10, 2) + ":" + part(12, 2) + " UTC";
}

std::string formatted(DWORD kind, ByteView nameDer)
{
    CERT_NAME_BLOB name{lengthOf(nameDer), dataOf(nameDer)};
    const DWORD size = CertNameToStrW(X509_ASN_ENCODING, &name, kind, nullptr, 0);
    std::wstring text(size, L'\0');
    CertNameToStrW(X509_ASN_ENCODING, &name, kind, text.data(), size);
    text.resize(size == 0 ? 0 : size - 1);
    return toUtf8(text);
}

constexpr std::string_view oidCommonName = "2.5.4.3";

std::string directoryText(DerReader& attribute)
{
    if (!attribute.nextIs(tag::bmpString)) {
        const ByteView whole = attribute.element();
        return textOf(DerReader(whole).content(whole[0]));
    }
    std::wstring text;
    const ByteView units = attribute.content(tag::bmpString);
    for (std::size_t i = 0; i + 1 < units.size(); i += 2) text += static_cast<wchar_t>(units[i] << 8 | units[i + 1]);
    return toUtf8(text);
}

} // namespace

CertificateFields readCertificate(ByteView der)
{
    DerReader file(der);
    DerReader certificate = file.enter(tag::sequence);
    if (!file.atEnd()) throw TokenError(Result::badData, "something follows the certificate");
    DerReader body = certificate.enter(tag::sequence);
    CertificateFields fields;
    body.contentIf(tag::contextOf(0));
    fields.serial = copyOf(body.content(tag::integer));
    fields.signatureOid = body.enter(tag::sequence).objectId();
    fields.issuer = copyOf(body.element());
    DerReader validity = body.enter(tag::sequence);
    fields.notBefore = timeText(validity);
    fields.notAfter = timeText(validity);
    fields.subject = copyOf(body.element());
    fields.publicKeyInfo = copyOf(body.element());
    certificate.enter(tag::sequence);
    certificate.bitString();
    return fields;
}

std::string nameText(ByteView nameDer)
{
    return formatted(CERT_X500_NAME_STR, nameDer);
}

std::string shortNameText(ByteView nameDer)
{
    DerReader sets = DerReader(nameDer).enter(tag::sequence);
    while (!sets.atEnd()) {
        DerReader set = sets.enter(tag::set);
        while (!set.atEnd()) {
            DerReader attribute = set.enter(tag::sequence);
            if (attribute.objectId() == oidCommonName) return directoryText(attribute);
        }
    }
    return nameText(nameDer);
}

std::string thumbprint(ByteView der)
{
    return toHex(digest(sha1, der));
}

} // namespace quelta::softtoken
