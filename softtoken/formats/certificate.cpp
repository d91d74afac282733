#include "formats/certificate.h"

#include "base/der_reader.h"
#include "base/token_error.h"

#include <string_view>

namespace quelta::softtoken {

namespace {

std::string timeText(DerReader& validity)
{
    const bool twoDigitYear = validity.nextIs(der::tagUtcTime);
    std::string text = toText(validity.content(twoDigitYear ? der::tagUtcTime : der::tagGeneralizedTime));
    if (twoDigitYear) text.insert(0, text < "50" ? "20" : "19");
    if (text.size() != 15 || text.back() != 'Z')
        throw TokenError(Result::badData, "a certificate's time is not written as it must be");
    const auto part = [&](std::size_t from, std::size_t count) { return text.substr(from, count); };
    return part(0, 4) + "-" + part(4, 2) + "-" + part(6, 2) + " " + part(8, 2) + ":" + part(10, 2) + ":" + part(12, 2) + " UTC";
}

} // namespace

CertificateFields readCertificate(ByteView der)
{
    DerReader file(der);
    DerReader certificate = file.enter(der::tagSequence);
    if (!file.atEnd()) throw TokenError(Result::badData, "something follows the certificate");
    DerReader body = certificate.enter(der::tagSequence);
    CertificateFields fields;
    if (body.nextIs(der::explicitTag(0))) body.element();
    fields.serial = toBytes(body.content(der::tagInteger));
    fields.signatureOid = body.enter(der::tagSequence).objectId();
    fields.issuer = toBytes(body.element());
    DerReader validity = body.enter(der::tagSequence);
    fields.notBefore = timeText(validity);
    fields.notAfter = timeText(validity);
    fields.subject = toBytes(body.element());
    fields.publicKeyInfo = toBytes(body.element());
    certificate.enter(der::tagSequence);
    certificate.bitString();
    return fields;
}

} // namespace quelta::softtoken
