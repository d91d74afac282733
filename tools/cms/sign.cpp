#include "tools/cms/sign.h"

#include "common/der_reader.h"
#include "tools/cms/certificates.h"
#include "tools/cms/signed_data.h"
#include "tools/cms/verify.h"
#include "tools/console/failure.h"

#include <algorithm>

namespace quelta::tools {

namespace {

// Returns the chain with the key's own certificate, even if the provider returns none.
std::vector<Bytes> certificatesFor(const SigningKey& signer)
{
    std::vector<Bytes> all = signer.provider.chain(signer.key);
    const ByteView own = encodedOf(*signer.key.certificate);
    if (std::ranges::none_of(all, [&](const Bytes& der) { return sameBytes(der, own); })) all.push_back(toBytes(own));
    return all;
}

void addSignature(SignedData& message, const SigningKey& signer, ByteView contentDigest)
{
    const CERT_CONTEXT& certificate = *signer.key.certificate;
    const Bytes attributes = signedAttributes(contentDigest, certificate);
    Bytes value = signer.provider.sign(signer.key, signer.hash, attributes);
    if (!holdsRsaKey(certificate)) value = der::ecdsaSignature(value);
    message.add(signer.hash, certificate, attributes, value, certificatesFor(signer));
}

} // namespace

Bytes signDetached(const SigningKey& signer, InputFile& file)
{
    Digest digest(signer.hash);
    forEachPiece(file, [&](ByteView piece) { digest.update(piece); });
    SignedData message = emptySignedData();
    addSignature(message, signer, digest.finish());
    return message.encoded();
}

void signAttached(const SigningKey& signer, InputFile& file, OutputFile& output)
{
    Digest digest(signer.hash);
    output.write(headOfAttached(signer.hash));
    forEachPiece(file, [&](ByteView piece) {
        digest.update(piece);
        output.write(der::octetString(piece));
    });
    SignedData message = emptySignedData();
    addSignature(message, signer, digest.finish());
    output.write(tailOfAttached(message));
}

Bytes signToo(const SigningKey& signer, ByteView message, InputFile& file)
{
    auto parsed = parseSignedData(message);
    if (!parsed) throw Failure("what is to be added to is no CMS signature in DER or PEM");
    const Bytes bare = parsed->withoutContent().encoded();
    auto hashes = hashesOf(bare);
    hashes.push_back(&signer.hash);
    const Digests digests = digestsOf(file, hashes);
    checkSignature(bare, digests);
    addSignature(*parsed, signer, digests.at(&signer.hash));
    return parsed->encoded();
}

} // namespace quelta::tools
