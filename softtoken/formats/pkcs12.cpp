#include "formats/pkcs12.h"

#include "base/der_reader.h"
#include "base/token_error.h"
#include "common/object_ids.h"
#include "common/text.h"
#include "crypto/key_encoding.h"
#include "formats/password_encryption.h"

namespace quelta::softtoken {

namespace {

constexpr std::string_view oidKeyBag = "1.2.840.113549.1.12.10.1.1";
constexpr std::string_view oidShroudedKeyBag = "1.2.840.113549.1.12.10.1.2";
constexpr std::string_view oidCertificateBag = "1.2.840.113549.1.12.10.1.3";
constexpr std::string_view oidX509Certificate = "1.2.840.113549.1.9.22.1";
constexpr std::string_view oidFriendlyName = "1.2.840.113549.1.9.20";

bool macFits(DerReader mac, ByteView content, const std::string* password)
{
    DerReader info = mac.enter(der::tagSequence);
    const KnownDigest* algorithm = digestOfOid(info.enter(der::tagSequence).objectId());
    const ByteView expected = info.content(der::tagOctetString);
    const ByteView salt = mac.content(der::tagOctetString);
    const std::uint64_t iterations = mac.atEnd() ? 1 : readIterations(mac);
    if (algorithm == nullptr)
        throw TokenError(Result::badData, "the file's digest is not known here: write it anew with a current openssl");
    const Bytes key = pkcs12Derive(*algorithm, Purpose::mac, password, salt, iterations, algorithm->size);
    return equalInConstantTime(hmac(*algorithm, key, content), expected);
}

// Writers disagree on what an empty password is: two zero bytes, or nothing at all.
void requireRightPassword(DerReader mac, ByteView content, const std::string& password)
{
    if (macFits(mac, content, &password) || (password.empty() && macFits(mac, content, nullptr))) return;
    throw TokenError(Result::wrongPin, "the password is wrong, or the file is damaged");
}

std::string bmpText(ByteView bytes)
{
    std::wstring text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) text += static_cast<wchar_t>(bytes[i] << 8 | bytes[i + 1]);
    return toUtf8(text);
}

std::string friendlyName(DerReader bag)
{
    if (bag.atEnd()) return {};
    DerReader attributes = bag.enter(der::tagSet);
    while (!attributes.atEnd()) {
        DerReader attribute = attributes.enter(der::tagSequence);
        if (attribute.objectId() != oidFriendlyName) continue;
        DerReader values = attribute.enter(der::tagSet);
        if (values.nextIs(der::tagBmpString)) return bmpText(values.content(der::tagBmpString));
    }
    return {};
}

void readBag(KeyFile& file, DerReader bag, const std::string& password)
{
    const std::string kind = bag.objectId();
    DerReader value = bag.enter(der::explicitTag(0));
    if (kind == oidKeyBag) {
        file.keys.push_back({decodePrivateKey(value.element()), friendlyName(bag)});
    } else if (kind == oidShroudedKeyBag) {
        file.keys.push_back({decodePrivateKey(decryptPrivateKeyInfo(value.element(), password)), friendlyName(bag)});
    } else if (kind == oidCertificateBag) {
        DerReader certificate = value.enter(der::tagSequence);
        if (certificate.objectId() != oidX509Certificate) return;
        file.certificates.push_back(toBytes(certificate.enter(der::explicitTag(0)).content(der::tagOctetString)));
    }
}

void readBags(KeyFile& file, ByteView contents, const std::string& password)
{
    DerReader bags = DerReader(contents).enter(der::tagSequence);
    while (!bags.atEnd()) readBag(file, bags.enter(der::tagSequence), password);
}

Bytes decryptContents(DerReader encrypted, const std::string& password)
{
    encrypted.smallInteger();
    DerReader info = encrypted.enter(der::tagSequence);
    info.objectId();
    const DerReader algorithm = info.enter(der::tagSequence);
    return decryptWithPassword(algorithm, info.content(der::implicitTag(0)), password);
}

} // namespace

KeyFile readPkcs12(ByteView der, const std::string& password)
{
    DerReader outer = DerReader(der).enter(der::tagSequence);
    outer.smallInteger();
    DerReader safe = outer.enter(der::tagSequence);
    if (safe.objectId() != oid::data)
        throw TokenError(Result::badData, "the file is protected by a public key, not by a password");
    const ByteView content = safe.enter(der::explicitTag(0)).content(der::tagOctetString);
    if (!outer.atEnd()) requireRightPassword(outer.enter(der::tagSequence), content, password);

    KeyFile file;
    DerReader parts = DerReader(content).enter(der::tagSequence);
    while (!parts.atEnd()) {
        DerReader part = parts.enter(der::tagSequence);
        const std::string kind = part.objectId();
        DerReader value = part.enter(der::explicitTag(0));
        if (kind == oid::data) readBags(file, value.content(der::tagOctetString), password);
        if (kind == oid::encryptedData) readBags(file, decryptContents(value.enter(der::tagSequence), password), password);
    }
    return file;
}

} // namespace quelta::softtoken
