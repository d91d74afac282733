#include "cms_sign.h"

#include "base/der.h"
#include "base/object_ids.h"
#include "certificates.h"
#include "cms_signed_data.h"
#include "failure.h"

#include <algorithm>

namespace quelta::tools {

namespace {

// The key's own certificate is always there, whatever chain is known.
std::vector<Bytes> certificatesFor(TokenProvider& provider, const TokenKey& key)
{
    std::vector<Bytes> all = provider.chain(key);
    const ByteView own = encodedOf(*key.certificate);
    if (std::ranges::none_of(all, [&](const Bytes& der) { return std::ranges::equal(der, own); })) all.push_back(toBytes(own));
    return all;
}

Bytes contentOf(HCRYPTMSG message)
{
    DWORD size = 0;
    if (!CryptMsgGetParam(message, CMSG_CONTENT_PARAM, 0, nullptr, &size)) failWithLastError("can't sign");
    Bytes content(size);
    if (!CryptMsgGetParam(message, CMSG_CONTENT_PARAM, 0, content.data(), &size)) failWithLastError("can't sign");
    content.resize(size);
    return content;
}

} // namespace

Bytes signWithMessageFunctions(CspProvider& provider, const TokenKey& key, const KnownDigest& hash, InputFile& file)
{
    Bytes time = signingTimeNow();
    CRYPT_ATTR_BLOB timeBlob = blobOf(time);
    std::string timeOid(oid::signingTime);
    CRYPT_ATTRIBUTE signingTime{timeOid.data(), 1, &timeBlob};

    std::string hashOid(hash.oid);
    CMSG_SIGNER_ENCODE_INFO signer{};
    signer.cbSize = sizeof signer;
    signer.pCertInfo = key.certificate->pCertInfo;
    signer.hCryptProv = provider.contextOf(key);
    signer.dwKeySpec = AT_SIGNATURE;
    signer.HashAlgorithm.pszObjId = hashOid.data();
    signer.cAuthAttr = 1;
    signer.rgAuthAttr = &signingTime;

    const std::vector<Bytes> certificates = certificatesFor(provider, key);
    std::vector<CERT_BLOB> blobs;
    std::ranges::transform(certificates, std::back_inserter(blobs), blobOf);

    CMSG_SIGNED_ENCODE_INFO info{};
    info.cbSize = sizeof info;
    info.cSigners = 1;
    info.rgSigners = &signer;
    info.cCertEncoded = static_cast<DWORD>(blobs.size());
    info.rgCertEncoded = blobs.data();

    const CryptMessage message(
        CryptMsgOpenToEncode(certificateEncoding, CMSG_DETACHED_FLAG, CMSG_SIGNED, &info, nullptr, nullptr));
    if (!message) failWithLastError("can't sign");
    forEachPiece(file, "signing", [&](ByteView piece) {
        if (!CryptMsgUpdate(message.get(), piece.data(), static_cast<DWORD>(piece.size()), FALSE))
            failWithLastError("can't hash");
    });
    if (!CryptMsgUpdate(message.get(), nullptr, 0, TRUE)) failWithLastError("can't sign");
    return contentOf(message.get());
}

Bytes signByAttributes(TokenProvider& provider, const TokenKey& key, const KnownDigest& hash, InputFile& file)
{
    Digest digest(hash);
    forEachPiece(file, "signing", [&](ByteView piece) { digest.update(piece); });
    Signature signature{&hash, key.certificate.get(), signedAttributes(digest.finish()), {}};
    signature.value = provider.sign(key, hash, signature.attributes);
    if (!holdsRsaKey(*key.certificate)) signature.value = der::ecdsaSignature(signature.value);
    return detachedSignedData(signature, certificatesFor(provider, key));
}

} // namespace quelta::tools
