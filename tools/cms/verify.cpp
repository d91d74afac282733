#include "tools/cms/verify.h"

#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/bcrypt_call.h"
#include "tools/cms/ber_stream.h"
#include "tools/cms/certificates.h"
#include "tools/cms/digest.h"
#include "tools/cms/pem_stream.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"
#include "tools/console/progress.h"

#include <algorithm>
#include <map>
#include <string_view>

namespace quelta::tools {

namespace {

// A message parameter, whose structure points into its own bytes.
template <class T>
class MessageParameter {
public:
    MessageParameter(HCRYPTMSG message, DWORD parameter, DWORD index = 0)
    {
        DWORD size = 0;
        if (!CryptMsgGetParam(message, parameter, index, nullptr, &size)) failWithLastError("can't read the signature");
        bytes_.resize(std::max<std::size_t>(size, sizeof(T)));
        if (!CryptMsgGetParam(message, parameter, index, bytes_.data(), &size)) failWithLastError("can't read the signature");
    }
    T* get() { return reinterpret_cast<T*>(bytes_.data()); }
    T* operator->() { return get(); }

private:
    Bytes bytes_;
};

CryptMessage openDetached(ByteView signature)
{
    CryptMessage message(CryptMsgOpenToDecode(certificateEncoding, CMSG_DETACHED_FLAG, 0, 0, nullptr, nullptr));
    if (!message) failWithLastError("can't read the signature");
    DWORD type = 0;
    DWORD size = sizeof type;
    if (!CryptMsgUpdate(message.get(), signature.data(), static_cast<DWORD>(signature.size()), TRUE) ||
        !CryptMsgGetParam(message.get(), CMSG_TYPE_PARAM, 0, &type, &size) || type != CMSG_SIGNED)
        throw Failure("this is no CMS signature in DER or PEM; give the .p7s first, then the file that was signed");
    return message;
}

const KnownDigest& hashOf(const CMSG_SIGNER_INFO& info)
{
    const KnownDigest* hash = digestOfOid(info.HashAlgorithm.pszObjId);
    if (!hash)
        throw Failure(std::string("the signature uses hash ") + info.HashAlgorithm.pszObjId + ", which this tool does not know");
    return *hash;
}

class RunningDigests {
public:
    explicit RunningDigests(const std::vector<const KnownDigest*>& hashes)
    {
        for (const KnownDigest* hash : hashes) running_.try_emplace(hash, *hash);
    }
    void update(ByteView piece)
    {
        for (auto& [hash, digest] : running_) digest.update(piece);
    }
    Digests finish()
    {
        Digests finished;
        for (auto& [hash, digest] : running_) finished.emplace(hash, digest.finish());
        return finished;
    }

private:
    std::map<const KnownDigest*, Digest> running_;
};

// Those of a message's own list that are known here.
std::vector<const KnownDigest*> hashesIn(ByteView algorithms)
{
    std::vector<const KnownDigest*> found;
    auto set = der::Reader(algorithms).enter(der::tagSet);
    while (auto algorithm = set ? set->enter(der::tagSequence) : std::nullopt) {
        const auto oid = algorithm->oid();
        if (const KnownDigest* hash = oid ? digestOfOid(*oid) : nullptr) found.push_back(hash);
    }
    return found;
}

// Empty if there is no such attribute, or not exactly one value of it.
ByteView attributeValue(const CRYPT_ATTRIBUTES& attributes, std::string_view type)
{
    for (const CRYPT_ATTRIBUTE& attribute : std::span(attributes.rgAttr, attributes.cAttr))
        if (attribute.pszObjId == type && attribute.cValue == 1) return viewOf(attribute.rgValue[0]);
    return {};
}

Bytes encodedAttributes(const CRYPT_ATTRIBUTES& attributes)
{
    DWORD size = 0;
    if (!CryptEncodeObject(certificateEncoding, PKCS_ATTRIBUTES, &attributes, nullptr, &size))
        failWithLastError("can't read the signature");
    Bytes encoded(size);
    if (!CryptEncodeObject(certificateEncoding, PKCS_ATTRIBUTES, &attributes, encoded.data(), &size))
        failWithLastError("can't read the signature");
    encoded.resize(size);
    return encoded;
}

// What was signed: the content's digest itself, or that of attributes which name it.
Bytes signedDigest(const CMSG_SIGNER_INFO& info, const KnownDigest& hash, const Bytes& contentDigest, HCRYPTMSG message)
{
    if (!info.AuthAttrs.cAttr) return contentDigest;
    const ByteView named = attributeValue(info.AuthAttrs, oid::messageDigest);
    if (!std::ranges::equal(named, der::octetString(contentDigest)))
        throw Refusal("the file is not the one that was signed: it was changed since, or it is another file");
    MessageParameter<const char> innerType(message, CMSG_INNER_CONTENT_TYPE_PARAM);
    if (!std::ranges::equal(attributeValue(info.AuthAttrs, oid::contentType), der::oid(innerType.get())))
        throw Refusal("the signature was made over content of another type");
    return digestOf(hash, encodedAttributes(info.AuthAttrs));
}

BcryptKey importPublicKey(const CERT_CONTEXT& certificate)
{
    BCRYPT_KEY_HANDLE key = nullptr;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, &certificate.pCertInfo->SubjectPublicKeyInfo, 0, nullptr, &key))
        throw Failure(
            "this system can't verify with the signer's kind of key; use another tool, as in openssl cms -verify -binary");
    return BcryptKey(key);
}

std::optional<FILETIME> signingTime(const CMSG_SIGNER_INFO& info)
{
    return decodedTime(attributeValue(info.AuthAttrs, oid::signingTime));
}

std::vector<Bytes> timeStampsIn(const CRYPT_ATTRIBUTES& attributes)
{
    std::vector<Bytes> found;
    for (const CRYPT_ATTRIBUTE& attribute : std::span(attributes.rgAttr, attributes.cAttr)) {
        if (attribute.pszObjId != oid::timeStampToken) continue;
        for (const CRYPT_ATTR_BLOB& value : std::span(attribute.rgValue, attribute.cValue))
            found.push_back(toBytes(viewOf(value)));
    }
    return found;
}

// Of a SignerInfo in DER: issuer and serial number, or the key identifier under the tag [0]. Not by crypt32, of which not every
// version tells the second.
bool isMeant(ByteView signerInfo, const CERT_CONTEXT& certificate)
{
    auto fields = der::Reader(signerInfo).enter(der::tagSequence);
    if (!fields || !fields->next(der::tagInteger)) return false;
    if (const auto identifier = fields->next(der::implicitTag(0)))
        return sameBytes(identifier->content, keyIdentifierOf(certificate));
    const auto name = fields->next(der::tagSequence);
    return name && sameBytes(name->whole, issuerAndSerial(certificate));
}

CertificateContext signersCertificate(ByteView signerInfo, HCERTSTORE store)
{
    PCCERT_CONTEXT certificate = nullptr;
    while ((certificate = CertEnumCertificatesInStore(store, certificate)))
        if (isMeant(signerInfo, *certificate)) return CertificateContext(certificate);
    throw Failure("the signer's certificate is not in the message; ask the signer for one that includes it");
}

Signer checkSigner(HCRYPTMSG message, DWORD index, ByteView signerInfo, const Digests& digests, HCERTSTORE store)
{
    CertificateContext certificate = signersCertificate(signerInfo, store);
    MessageParameter<CMSG_SIGNER_INFO> info(message, CMSG_SIGNER_INFO_PARAM, index);
    if (info->HashEncryptionAlgorithm.pszObjId == std::string_view("1.2.840.113549.1.1.10"))
        throw Failure("the signature uses RSA-PSS, which this tool does not know; verify with another tool");

    const KnownDigest& hash = hashOf(*info.get());
    const auto known = digests.find(&hash);
    if (known == digests.end()) throw Failure("the message does not list the hash that its signer used; get it anew");
    const Bytes digest = signedDigest(*info.get(), hash, known->second, message);
    if (!signatureHolds(*certificate, hash, digest, viewOf(info->EncryptedHash)))
        throw Refusal(info->AuthAttrs.cAttr ? "the signature itself is damaged or forged: it is not the signer's"
                                            : "the signature does not belong to this file: one of the two was changed");
    return {std::move(certificate), std::string(hash.name), signingTime(*info.get()), toBytes(viewOf(info->EncryptedHash)),
            timeStampsIn(info->UnauthAttrs)};
}

} // namespace

bool signatureHolds(const CERT_CONTEXT& certificate, const KnownDigest& hash, ByteView digest, ByteView signature)
{
    const auto kind = publicKeyKind(certificate);
    if (!kind) throw Failure("the signer's key is neither RSA nor on P-256, P-384 or P-521; verify with another tool");
    const BcryptKey key = importPublicKey(certificate);
    BCRYPT_PKCS1_PADDING_INFO padding{hash.systemName};
    // ECDSA uses no more of a digest than the curve's size; some systems fail on a longer one instead of cutting it.
    if (kind->elliptic) digest = digest.first(std::min(digest.size(), kind->coordinateSize));
    const auto value =
        kind->elliptic ? der::ecdsaHalves(signature, kind->coordinateSize) : Bytes(signature.begin(), signature.end());
    return value && BCryptVerifySignature(key.get(), kind->elliptic ? nullptr : &padding, bcryptInput(digest),
                                          static_cast<ULONG>(digest.size()), bcryptInput(*value),
                                          static_cast<ULONG>(value->size()), kind->elliptic ? 0 : BCRYPT_PAD_PKCS1) >= 0;
}

std::optional<FILETIME> decodedTime(ByteView encoded)
{
    FILETIME time{};
    DWORD size = sizeof time;
    if (encoded.empty() || !CryptDecodeObject(X509_ASN_ENCODING, X509_CHOICE_OF_TIME, encoded.data(),
                                              static_cast<DWORD>(encoded.size()), 0, &time, &size))
        return std::nullopt;
    return time;
}

std::vector<const KnownDigest*> hashesOf(ByteView signature)
{
    const CryptMessage message = openDetached(signature);
    MessageParameter<DWORD> count(message.get(), CMSG_SIGNER_COUNT_PARAM);
    std::vector<const KnownDigest*> hashes;
    for (DWORD i = 0; i < *count.get(); ++i)
        hashes.push_back(&hashOf(*MessageParameter<CMSG_SIGNER_INFO>(message.get(), CMSG_SIGNER_INFO_PARAM, i).get()));
    return hashes;
}

Digests digestsOf(InputFile& file, const std::vector<const KnownDigest*>& hashes, const std::string& verb)
{
    RunningDigests running(hashes);
    forEachPiece(file, verb, [&](ByteView piece) { running.update(piece); });
    return running.finish();
}

CheckedSignature checkSignature(ByteView signature, const Digests& digests)
{
    const CryptMessage message = openDetached(signature);
    MessageParameter<DWORD> count(message.get(), CMSG_SIGNER_COUNT_PARAM);
    if (!*count.get()) throw Refusal("nobody signed: the message holds certificates alone");
    CheckedSignature checked;
    checked.certificates.reset(CertOpenStore(CERT_STORE_PROV_MSG, certificateEncoding, 0, 0, message.get()));
    if (!checked.certificates) failWithLastError("can't read the signature's certificates");
    const auto parsed = parseSignedData(signature);
    if (!parsed || parsed->signerInfos.size() != *count.get()) throw Failure("the signature is not in DER; get it anew");
    for (DWORD i = 0; i < *count.get(); ++i)
        checked.signers.push_back(checkSigner(message.get(), i, parsed->signerInfos[i], digests, checked.certificates.get()));
    return checked;
}

CheckedSignature checkSignature(ByteView signature, InputFile& file)
{
    return checkSignature(signature, digestsOf(file, hashesOf(signature), "verifying"));
}

CheckedSignature checkAttached(InputFile& message, const std::function<void(ByteView)>& take)
{
    MessageReader reader(message);
    BerStream stream(message.name(), [&](std::span<unsigned char> room) { return reader.read(room); });
    stream.enter(der::tagSequence);
    if (stream.element() != der::oid(oid::signedData)) stream.refuse();
    stream.enter(der::explicitTag(0));
    const auto body = stream.enter(der::tagSequence);
    Bytes fields = stream.element();
    const Bytes algorithms = stream.element();
    const auto content = stream.enter(der::tagSequence);
    const Bytes type = stream.element();
    if (stream.atEnd(content)) throw Failure(message.name() + " is a detached signature; name the file that was signed as well");

    RunningDigests running(hashesIn(algorithms));
    Progress progress("verifying", message.size());
    stream.wrappedOctets([&](ByteView piece) {
        running.update(piece);
        take(piece);
        progress.advance(piece.size());
    });
    if (!stream.atEnd(content)) stream.refuse();
    fields = concat({fields, algorithms, der::sequence({type})});
    while (!stream.atEnd(body)) append(fields, stream.element());
    const Bytes detached = der::sequence({fields});
    return checkSignature(der::sequence({der::oid(oid::signedData), der::element(der::explicitTag(0), detached)}),
                          running.finish());
}

} // namespace quelta::tools
