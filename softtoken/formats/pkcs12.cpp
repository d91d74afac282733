#include "formats/pkcs12.h"

#include "formats/byte_text.h"
#include "formats/der.h"
#include "formats/password_encryption.h"
#include "store/token_error.h"

namespace quelta::softtoken {

namespace {

constexpr std::string_view oidData = "1.2.840.113549.1.7.1";
constexpr std::string_view oidEncryptedData = "1.2.840.113549.1.7.6";
constexpr std::string_view oidKeyBag = "1.2.840.113549.1.12.10.1.1";
constexpr std::string_view oidShroudedKeyBag = "1.2.840.113549.1.12.10.1.2";
constexpr std::string_view oidCertificateBag = "1.2.840.113549.1.12.10.1.3";
constexpr std::string_view oidX509Certificate = "1.2.840.113549.1.9.22.1";
constexpr std::string_view oidFriendlyName = "1.2.840.113549.1.9.20";

bool macFits(DerReader mac, ByteView content, const std::string* password)
{
    DerReader info = mac.enter(tag::sequence);
    const DigestAlgorithm* algorithm = digestOfOid(info.enter(tag::sequence).objectId());
    const ByteView expected = info.content(tag::octetString);
    const ByteView salt = mac.content(tag::octetString);
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
    DerReader attributes = bag.enter(tag::set);
    while (!attributes.atEnd()) {
        DerReader attribute = attributes.enter(tag::sequence);
        if (attribute.objectId() != oidFriendlyName) continue;
        DerReader values = attribute.enter(tag::set);
        if (values.nextIs(tag::bmpString)) return bmpText(values.content(tag::bmpString));
    }
    return {};
}

void readBag(KeyFile& file, DerReader bag, const std::string& password)
{
    const std::string kind = bag.objectId();
    DerReader value = bag.enter(tag::contextOf(0));
    if (kind == oidKeyBag) {
        file.keys.push_back({decodePrivateKey(value.element()), friendlyName(bag)});
    } else if (kind == oidShroudedKeyBag) {
        file.keys.push_back({decodePrivateKey(decryptPrivateKeyInfo(value.element(), password)), friendlyName(bag)});
    } else if (kind == oidCertificateBag) {
        DerReader certificate = value.enter(tag::sequence);
        if (certificate.objectId() != oidX509Certificate) return;
        file.certificates.push_back(copyOf(certificate.enter(tag::contextOf(0)).content(tag::octetString)));
    }
}

void readBags(KeyFile& file, ByteView contents, const std::string& password)
{
    DerReader bags = DerReader(contents).enter(tag::sequence);
    while (!bags.atEnd()) readBag(file, bags.enter(tag::sequence), password);
}

Bytes decryptContents(DerReader encrypted, const std::string& password)
{
    encrypted.smallInteger();
    DerReader info = encrypted.enter(tag::sequence);
    info.objectId();
    const DerReader algorithm = info.enter(tag::sequence);
    return decryptWithPassword(algorithm, info.content(tag::context(0)), password);
}

} // namespace

KeyFile readPkcs12(ByteView der, const std::string& password)
{
    DerReader outer = DerReader(der).enter(tag::sequence);
    outer.smallInteger();
    DerReader safe = outer.enter(tag::sequence);
    if (safe.objectId() != oidData) throw TokenError(Result::badData, "the file is protected by a public key, not by a password");
    const ByteView content = safe.enter(tag::contextOf(0)).content(tag::octetString);
    if (!outer.atEnd()) requireRightPassword(outer.enter(tag::sequence), content, password);

    KeyFile file;
    DerReader parts = DerReader(content).enter(tag::sequence);
    while (!parts.atEnd()) {
        DerReader part = parts.enter(tag::sequence);
        const std::string kind = part.objectId();
        DerReader value = part.enter(tag::contextOf(0));
        if (kind == oidData) readBags(file, value.content(tag::octetString), password);
        if (kind == oidEncryptedData) readBags(file, decryptContents(value.enter(tag::sequence), password), password);
    }
    return file;
}

} // namespace quelta::softtoken
