#include "formats/key_file.h"

#include "base/der_reader.h"
#include "common/pem.h"
#include "crypto/key_encoding.h"
#include "formats/certificate.h"

namespace quelta::softtoken {

namespace {

constexpr std::uint64_t pkcs12Version = 3;

[[noreturn]] void refuseEncryptedKey()
{
    throw TokenError(Result::badData, "an encrypted key: convert it first with: openssl pkey -in FILE -out key.pem");
}

void addBlock(KeyFile& file, const PemBlock& block)
{
    if (block.label == "CERTIFICATE" || block.label == "X509 CERTIFICATE")
        file.certificates.push_back(block.bytes);
    else if (block.label == "PRIVATE KEY")
        file.keys.push_back(decodePrivateKey(block.bytes));
    else if (block.label == "RSA PRIVATE KEY")
        file.keys.push_back(decodeRsaPrivateKey(block.bytes));
    else if (block.label == "EC PRIVATE KEY")
        file.keys.push_back(decodeEcPrivateKey(block.bytes));
}

KeyFile readPem(std::string_view text)
{
    // The older PEM form tells of its encryption in a line within the block.
    if (text.find("-----BEGIN ENCRYPTED") != std::string_view::npos || text.find("4,ENCRYPTED") != std::string_view::npos)
        refuseEncryptedKey();
    const auto blocks = pemBlocks(text);
    if (!blocks) throw TokenError(Result::badData, "a PEM block has no end, or is not written in base64");
    KeyFile file;
    for (const PemBlock& block : *blocks) addBlock(file, block);
    return file;
}

// Keys and PKCS#12 files begin with a number, encrypted keys and certificates with a sequence. The next element decides.
KeyFile readDer(ByteView content)
{
    DerReader outer = DerReader(content).enter(der::tagSequence);
    if (!outer.nextIs(der::tagInteger)) {
        outer.element();
        if (outer.nextIs(der::tagOctetString)) refuseEncryptedKey();
        readCertificate(content);
        return {{}, {toBytes(content)}};
    }
    if (outer.smallInteger() == pkcs12Version)
        throw TokenError(Result::badData, "a PKCS#12 file: convert it first with: openssl pkcs12 -in FILE -nodes -out key.pem");
    if (outer.nextIs(der::tagInteger)) return {{decodeRsaPrivateKey(content)}, {}};
    if (outer.nextIs(der::tagOctetString)) return {{decodeEcPrivateKey(content)}, {}};
    return {{decodePrivateKey(content)}, {}};
}

} // namespace

KeyFile readKeyFile(ByteView content)
{
    const std::string text = toText(content);
    if (text.find("-----BEGIN ") != std::string::npos) return readPem(text);
    if (content.empty() || content[0] != der::tagSequence) throw TokenError(Result::badData, "it is neither PEM nor DER");
    return readDer(content);
}

} // namespace quelta::softtoken
