#include "formats/key_file.h"

#include "base/der_reader.h"
#include "base/token_error.h"
#include "crypto/key_encoding.h"
#include "formats/base64.h"
#include "formats/certificate.h"
#include "formats/password_encryption.h"
#include "formats/pkcs12.h"

namespace quelta::softtoken {

namespace {

constexpr std::string_view beginMark = "-----BEGIN ";
constexpr std::string_view endMark = "-----END ";
constexpr std::string_view lineMark = "-----";

struct PemBlock {
    std::string kind;
    Bytes der;
};

PemBlock takeBlock(std::string_view& text)
{
    text.remove_prefix(text.find(beginMark) + beginMark.size());
    const std::size_t kindEnd = text.find(lineMark);
    const std::size_t end = text.find(endMark);
    if (kindEnd == std::string_view::npos || end == std::string_view::npos || end < kindEnd)
        throw TokenError(Result::badData, "a PEM block has no end");
    const std::string kind(text.substr(0, kindEnd));
    const std::string_view body = text.substr(kindEnd + lineMark.size(), end - kindEnd - lineMark.size());
    text.remove_prefix(end + endMark.size());
    if (body.find("ENCRYPTED") != std::string_view::npos)
        throw TokenError(Result::badData, "a key in an old encrypted form: convert it first with openssl pkcs8 -topk8");
    return {kind, fromBase64(body)};
}

void readBlock(KeyFile& file, const PemBlock& block, const std::optional<std::string>& password)
{
    if (block.kind == "CERTIFICATE" || block.kind == "X509 CERTIFICATE")
        file.certificates.push_back(block.der);
    else if (block.kind == "PRIVATE KEY")
        file.keys.push_back({decodePrivateKey(block.der), {}});
    else if (block.kind == "RSA PRIVATE KEY")
        file.keys.push_back({decodeRsaPrivateKey(block.der), {}});
    else if (block.kind == "EC PRIVATE KEY")
        file.keys.push_back({decodeEcPrivateKey(block.der), {}});
    else if (block.kind == "ENCRYPTED PRIVATE KEY")
        file.keys.push_back({decodePrivateKey(decryptPrivateKeyInfo(block.der, requirePassword(password))), {}});
}

KeyFile readPem(std::string_view text, const std::optional<std::string>& password)
{
    KeyFile file;
    while (text.find(beginMark) != std::string_view::npos) readBlock(file, takeBlock(text), password);
    return file;
}

// Keys and PKCS#12 files begin with a number, most of them with the same: what follows it tells them apart.
KeyFile readDer(ByteView content, const std::optional<std::string>& password)
{
    DerReader outer = DerReader(content).enter(der::tagSequence);
    if (!outer.nextIs(der::tagInteger)) {
        readCertificate(content);
        return {{}, {toBytes(content)}};
    }
    if (outer.smallInteger() == pkcs12Version) return readPkcs12(content, requirePassword(password));
    if (outer.nextIs(der::tagInteger)) return {{{decodeRsaPrivateKey(content), {}}}, {}};
    if (outer.nextIs(der::tagOctetString)) return {{{decodeEcPrivateKey(content), {}}}, {}};
    return {{{decodePrivateKey(content), {}}}, {}};
}

} // namespace

KeyFile readKeyFile(ByteView content, const std::optional<std::string>& password)
{
    const std::string text = toText(content);
    if (text.find(beginMark) != std::string::npos) return readPem(text, password);
    if (content.empty() || content[0] != der::tagSequence)
        throw TokenError(Result::badData, "it is neither PEM nor PKCS#12 nor DER");
    return readDer(content, password);
}

std::string pemOf(std::string_view kind, ByteView der)
{
    const std::string base64 = toBase64(der);
    constexpr std::size_t lineLength = 64;
    std::string text = std::string(beginMark) + std::string(kind) + "-----\n";
    for (std::size_t i = 0; i < base64.size(); i += lineLength) text += base64.substr(i, lineLength) + "\n";
    return text + std::string(endMark) + std::string(kind) + "-----\n";
}

} // namespace quelta::softtoken
