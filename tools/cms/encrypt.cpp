#include "tools/cms/enveloped_data.h"

#include "base/der.h"
#include "common/object_ids.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"

namespace quelta::tools {

namespace {

Bytes wrapFor(const CERT_CONTEXT& recipient, ByteView contentKey)
{
    BCRYPT_KEY_HANDLE handle = nullptr;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, &recipient.pCertInfo->SubjectPublicKeyInfo, 0, nullptr, &handle))
        failWithLastError("can't use the recipient's public key");
    const BcryptKey key(handle);
    // Room for a key of 16384 bits.
    Bytes wrapped(2048);
    ULONG size = 0;
    requireSuccess(BCryptEncrypt(key.get(), bcryptInput(contentKey), static_cast<ULONG>(contentKey.size()), nullptr, nullptr, 0,
                                 wrapped.data(), static_cast<ULONG>(wrapped.size()), &size, BCRYPT_PAD_PKCS1),
                   "can't encrypt the content key");
    wrapped.resize(size);
    return wrapped;
}

Bytes recipientInfo(const CERT_CONTEXT& recipient, ByteView contentKey)
{
    return der::sequence({der::smallInteger(0), issuerAndSerial(recipient),
                          der::sequence({der::oid(oid::rsaEncryption), der::null()}),
                          der::octetString(wrapFor(recipient, contentKey))});
}

// Returns the head of the message in BER of indefinite length, since the length of standard input is unknown. The content follows
// in pieces, an OCTET STRING each, and then an end for each of the five open elements.
Bytes headOf(const CERT_CONTEXT& recipient, const KnownCipher& cipher, ByteView key, ByteView iv)
{
    const auto open = [](unsigned char tag) { return Bytes{tag, 0x80}; };
    return concat({open(der::tagSequence), der::oid(oid::envelopedData), open(der::explicitTag(0)), open(der::tagSequence),
                   der::smallInteger(0), der::setOf({recipientInfo(recipient, key)}), open(der::tagSequence), der::oid(oid::data),
                   der::sequence({der::oid(cipher.oid), der::octetString(iv)}), open(der::explicitTag(0))});
}

const Bytes ends(2 * std::size_t{5}, 0);

} // namespace

void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, OutputFile& output)
{
    if (!holdsRsaKey(recipient))
        throw Failure("the certificate of " + subjectOf(recipient) +
                      " holds no RSA key; choose one that does with --cert or --key");
    const KnownCipher& cipher = knownCiphers[0];
    const Wiped<Bytes> key(randomBytes(cipher.keySize));
    const Bytes iv = randomBytes(cipher.blockSize);
    BlockCipher content(cipher, *key, iv);
    const auto put = [&](ByteView blocks) { output.write(der::octetString(content.encrypt(blocks))); };
    output.write(headOf(recipient, cipher, *key, iv));
    Bytes tail;
    forEachPiece(file, [&](ByteView piece) {
        const std::size_t whole = piece.size() - piece.size() % cipher.blockSize;
        if (whole) put(piece.first(whole));
        tail.assign(piece.begin() + static_cast<std::ptrdiff_t>(whole), piece.end());
    });
    const std::size_t missing = cipher.blockSize - tail.size();
    tail.resize(cipher.blockSize, static_cast<unsigned char>(missing));
    put(tail);
    output.write(ends);
}

} // namespace quelta::tools
