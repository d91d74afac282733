#include "cms_encrypt.h"

#include "base/der.h"
#include "base/object_ids.h"
#include "bcrypt_call.h"
#include "certificates.h"
#include "content_cipher.h"
#include "failure.h"

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

} // namespace

void encryptFor(const CERT_CONTEXT& recipient, InputFile& file, OutputFile& output)
{
    if (!holdsRsaKey(recipient))
        throw Failure("the certificate of " + subjectOf(recipient) +
                      " holds no RSA key; choose one that does with --cert or --container");
    const KnownCipher& cipher = knownCiphers[0];
    const Bytes key = randomBytes(cipher.keySize);
    const Bytes iv = randomBytes(cipher.blockSize);
    ContentKey content(cipher, key, iv);

    const std::uint64_t size = file.size();
    const std::uint64_t encryptedSize = (size / cipher.blockSize + 1) * cipher.blockSize;
    output.write(headOf(recipient, cipher, key, iv, encryptedSize));

    std::uint64_t done = 0;
    Bytes tail;
    forEachPiece(file, "encrypting", [&](ByteView piece) {
        done += piece.size();
        const std::size_t whole = piece.size() - piece.size() % cipher.blockSize;
        if (whole) output.write(content.encrypt(piece.first(whole)));
        tail.assign(piece.begin() + static_cast<std::ptrdiff_t>(whole), piece.end());
    });
    if (done != size) throw Failure(file.name() + " changed while it was read; try again when nothing writes to it");

    const std::size_t missing = cipher.blockSize - tail.size();
    tail.resize(cipher.blockSize, static_cast<unsigned char>(missing));
    output.write(content.encrypt(tail));
}

} // namespace quelta::tools
