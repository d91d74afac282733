#include "tools/cms/encrypt.h"

#include "base/der.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/bcrypt_call.h"
#include "tools/cms/certificates.h"
#include "tools/cms/content_cipher.h"
#include "tools/console/failure.h"

namespace quelta::tools {

namespace {

Bytes wrapFor(const CERT_CONTEXT& recipient, ByteView contentKey)
{
    BCRYPT_KEY_HANDLE handle = nullptr;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, &recipient.pCertInfo->SubjectPublicKeyInfo, 0, nullptr, &handle))
        failWithLastError("can't use the recipient's public key");
    const BcryptKey key(handle);
    // Room for the largest key, 16384 bits.
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

// A message is nested headers, each with the length of all that follows in it; only the innermost content is too large to hold.
class Nesting {
public:
    explicit Nesting(std::uint64_t contentSize) : total_(contentSize) {}

    void putBefore(ByteView bytes)
    {
        head_ = concat({bytes, head_});
        total_ += bytes.size();
    }
    void wrap(unsigned char tag) { putBefore(der::header(tag, total_)); }
    const Bytes& head() const { return head_; }

private:
    Bytes head_;
    std::uint64_t total_;
};

Bytes headOf(const CERT_CONTEXT& recipient, const KnownCipher& cipher, ByteView key, ByteView iv, std::uint64_t encryptedSize)
{
    Nesting nesting(encryptedSize);
    nesting.wrap(der::implicitTag(0));
    nesting.putBefore(der::sequence({der::oid(cipher.oid), der::octetString(iv)}));
    nesting.putBefore(der::oid(oid::data));
    nesting.wrap(der::tagSequence);
    nesting.putBefore(der::setOf({recipientInfo(recipient, key)}));
    nesting.putBefore(der::smallInteger(0));
    nesting.wrap(der::tagSequence);
    nesting.wrap(der::explicitTag(0));
    nesting.putBefore(der::oid(oid::envelopedData));
    nesting.wrap(der::tagSequence);
    return nesting.head();
}

// For content of a length that nobody knows beforehand: no lengths outside, each piece an OCTET STRING, and after the last one an
// end for each of the five elements that are open.
Bytes headWithoutLengths(const CERT_CONTEXT& recipient, const KnownCipher& cipher, ByteView key, ByteView iv)
{
    const auto open = [](unsigned char tag) { return Bytes{tag, 0x80}; };
    return concat({open(der::tagSequence), der::oid(oid::envelopedData), open(der::explicitTag(0)), open(der::tagSequence),
                   der::smallInteger(0), der::setOf({recipientInfo(recipient, key)}), open(der::tagSequence), der::oid(oid::data),
                   der::sequence({der::oid(cipher.oid), der::octetString(iv)}), open(der::explicitTag(0))});
}

const Bytes endsWithoutLengths(2 * std::size_t{5}, 0);

} // namespace

void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, MessageWriter& output)
{
    if (!holdsRsaKey(recipient))
        throw Failure("the certificate of " + subjectOf(recipient) +
                      " holds no RSA key; choose one that does with --cert or --key");
    const KnownCipher& cipher = knownCiphers[0];
    const Bytes key = randomBytes(cipher.keySize);
    const Bytes iv = randomBytes(cipher.blockSize);
    ContentKey content(cipher, key, iv);

    const auto size = file.size();
    const auto encryptedSize = [&] { return (*size / cipher.blockSize + 1) * cipher.blockSize; };
    const auto put = [&](const Bytes& encrypted) { output.write(size ? encrypted : der::octetString(encrypted)); };
    output.write(size ? headOf(recipient, cipher, key, iv, encryptedSize()) : headWithoutLengths(recipient, cipher, key, iv));

    std::uint64_t done = 0;
    Bytes tail;
    forEachPiece(file, "encrypting", [&](ByteView piece) {
        done += piece.size();
        const std::size_t whole = piece.size() - piece.size() % cipher.blockSize;
        if (whole) put(content.encrypt(piece.first(whole)));
        tail.assign(piece.begin() + static_cast<std::ptrdiff_t>(whole), piece.end());
    });
    if (size && done != *size) throw Failure(file.name() + " changed while it was read; try again when nothing writes to it");

    const std::size_t missing = cipher.blockSize - tail.size();
    tail.resize(cipher.blockSize, static_cast<unsigned char>(missing));
    put(content.encrypt(tail));
    if (!size) output.write(endsWithoutLengths);
}

} // namespace quelta::tools
