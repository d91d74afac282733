#include "tools/cms/verify.h"

#include "base/table.h"
#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/ber_stream.h"
#include "tools/cms/certificates.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"

#include <algorithm>

namespace quelta::tools {

namespace {

constexpr std::string_view rsaPss = "1.2.840.113549.1.1.10";
constexpr auto damaged = "the signature is damaged; get it anew";

SignedData parsed(ByteView signature)
{
    auto message = parseSignedData(signature);
    if (!message) throw Failure("this is no CMS signature in DER or PEM; give the .p7s first, then the file that was signed");
    return std::move(*message);
}

// The parts of a SignerInfo. The views point into the message.
struct SignerFields {
    der::Element certificate;
    std::string hash;
    std::optional<der::Element> attributes;
    std::string algorithm;
    ByteView value;
    bool hasTimeStamp;
};

std::string oidIn(der::Reader& fields)
{
    auto algorithm = fields.enter(der::tagSequence);
    return algorithm ? algorithm->oid().value_or("") : "";
}

// Returns the values of an attribute; nullopt if it is missing.
std::optional<der::Reader> attributeValues(ByteView attributes, std::string_view type)
{
    der::Reader all(attributes);
    while (auto attribute = all.enter(der::tagSequence))
        if (attribute->oid() == type) return attribute->enter(der::tagSet);
    return std::nullopt;
}

// Returns the value of an attribute; empty unless there is exactly one value.
ByteView attributeValue(ByteView attributes, std::string_view type)
{
    auto values = attributeValues(attributes, type);
    const auto value = values ? values->next() : std::nullopt;
    return value && values->atEnd() ? value->whole : ByteView();
}

SignerFields fieldsOf(ByteView signerInfo)
{
    SignerFields signer{};
    auto fields = der::Reader(signerInfo).enter(der::tagSequence);
    const auto version = fields ? fields->next(der::tagInteger) : std::nullopt;
    const auto certificate = version ? fields->next() : std::nullopt;
    if (!certificate) throw Failure(damaged);
    signer.certificate = *certificate;
    signer.hash = oidIn(*fields);
    signer.attributes = fields->next(der::explicitTag(0));
    signer.algorithm = oidIn(*fields);
    const auto value = fields->octetString();
    if (!value) throw Failure(damaged);
    signer.value = *value;
    const auto unsignedAttributes = fields->next(der::explicitTag(1));
    signer.hasTimeStamp = unsignedAttributes && attributeValues(unsignedAttributes->content, oid::timeStampToken);
    return signer;
}

// Returns null for an unsupported digest.
const KnownDigest* digestOfOid(std::string_view oid)
{
    const KnownDigest* kind = findRow(knownDigests, &KnownDigest::oid, oid);
    return kind && !kind->ecdsaOid.empty() ? kind : nullptr;
}

const KnownDigest& hashOf(const SignerFields& signer)
{
    const KnownDigest* hash = digestOfOid(signer.hash);
    if (!hash) throw Failure("the signature uses hash " + signer.hash + ", which this tool does not know");
    return *hash;
}

// Computes digests of a content that `forEach` hands out in pieces.
template <class ForEach>
Digests digestsOf(const std::vector<const KnownDigest*>& hashes, ForEach forEach)
{
    std::map<const KnownDigest*, Digest> running;
    for (const KnownDigest* hash : hashes) running.try_emplace(hash, *hash);
    forEach([&](ByteView piece) {
        for (auto& [hash, digest] : running) digest.update(piece);
    });
    Digests finished;
    for (auto& [hash, digest] : running) finished.emplace(hash, digest.finish());
    return finished;
}

// Returns the supported digests of the message's list.
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

// Returns the digest that was signed: the content's, or that of attributes that hold the content's digest.
Bytes signedDigest(const SignerFields& signer, const KnownDigest& hash, const Bytes& contentDigest, ByteView contentType)
{
    if (!signer.attributes) return contentDigest;
    const ByteView attributes = signer.attributes->content;
    if (!sameBytes(attributeValue(attributes, oid::messageDigest), der::octetString(contentDigest)))
        throw Refusal("the file is not the one that was signed: it was changed since, or it is another file");
    if (!sameBytes(attributeValue(attributes, oid::contentType), contentType))
        throw Refusal("the signature was made over content of another type");
    // The message has the attributes under the tag [0]. The signature is over a SET OF.
    return digestOf(hash, der::element(der::tagSet, attributes));
}

BcryptKey importPublicKey(const CERT_CONTEXT& certificate)
{
    BCRYPT_KEY_HANDLE key = nullptr;
    if (!CryptImportPublicKeyInfoEx2(X509_ASN_ENCODING, &certificate.pCertInfo->SubjectPublicKeyInfo, 0, nullptr, &key))
        throw Failure(
            "this system can't verify with the signer's kind of key; use another tool, as in openssl cms -verify -binary");
    return BcryptKey(key);
}

std::optional<FILETIME> signingTime(const SignerFields& signer)
{
    const ByteView encoded = signer.attributes ? attributeValue(signer.attributes->content, oid::signingTime) : ByteView();
    FILETIME time{};
    DWORD size = sizeof time;
    if (encoded.empty() || !CryptDecodeObject(X509_ASN_ENCODING, X509_CHOICE_OF_TIME, encoded.data(),
                                              static_cast<DWORD>(encoded.size()), 0, &time, &size))
        return std::nullopt;
    return time;
}

CertificateContext signersCertificate(const SignerFields& signer, const std::vector<Bytes>& certificates)
{
    for (const Bytes& der : certificates)
        if (auto certificate = parseCertificate(der); certificate && isNamedBy(*certificate, signer.certificate))
            return certificate;
    throw Failure("the signer's certificate is not in the message; ask the signer for one that includes it");
}

Signer checkSigner(const SignedData& message, ByteView signerInfo, const Digests& digests)
{
    const SignerFields signer = fieldsOf(signerInfo);
    CertificateContext certificate = signersCertificate(signer, message.certificates);
    if (signer.algorithm == rsaPss)
        throw Failure("the signature uses RSA-PSS, which this tool does not know; verify with another tool");
    const KnownDigest& hash = hashOf(signer);
    const auto known = digests.find(&hash);
    if (known == digests.end()) throw Failure("the message does not list the hash that its signer used; get it anew");
    auto content = der::Reader(message.content).enter(der::tagSequence);
    const auto type = content ? content->next(der::tagOid) : std::nullopt;
    const Bytes digest = signedDigest(signer, hash, known->second, type ? type->whole : ByteView());
    if (!signatureHolds(*certificate, hash, digest, signer.value))
        throw Refusal(signer.attributes ? "the signature itself is damaged or forged: it is not the signer's"
                                        : "the signature does not belong to this file: one of the two was changed");
    return {std::move(certificate), std::string(hash.name), signingTime(signer), signer.hasTimeStamp};
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
    const auto value = kind->elliptic ? der::ecdsaHalves(signature, kind->coordinateSize) : toBytes(signature);
    return value && BCryptVerifySignature(key.get(), kind->elliptic ? nullptr : &padding, bcryptInput(digest), bcryptSize(digest),
                                          bcryptInput(*value), bcryptSize(*value), kind->elliptic ? 0 : BCRYPT_PAD_PKCS1) >= 0;
}

std::vector<const KnownDigest*> hashesOf(ByteView signature)
{
    std::vector<const KnownDigest*> hashes;
    for (const Bytes& signerInfo : parsed(signature).signerInfos) hashes.push_back(&hashOf(fieldsOf(signerInfo)));
    return hashes;
}

Digests digestsOf(InputFile& file, const std::vector<const KnownDigest*>& hashes)
{
    return digestsOf(hashes, [&](const auto& take) { forEachPiece(file, take); });
}

CheckedSignature checkSignature(ByteView signature, const Digests& digests)
{
    SignedData message = parsed(signature);
    if (message.signerInfos.empty()) throw Refusal("nobody signed: the message holds certificates alone");
    CheckedSignature checked;
    for (const Bytes& signerInfo : message.signerInfos) checked.signers.push_back(checkSigner(message, signerInfo, digests));
    checked.certificates = std::move(message.certificates);
    return checked;
}

CheckedSignature checkSignature(ByteView signature, InputFile& file)
{
    return checkSignature(signature, digestsOf(file, hashesOf(signature)));
}

CheckedSignature checkAttached(InputFile& message, const std::function<void(ByteView)>& take)
{
    BerStream stream(message.name(), [&](std::span<unsigned char> room) { return message.read(room); });
    const auto outer = stream.enter(der::tagSequence);
    if (stream.element() != der::oid(oid::signedData)) stream.refuse();
    const auto wrapper = stream.enter(der::explicitTag(0));
    const auto body = stream.enter(der::tagSequence);
    Bytes fields = stream.element();
    const Bytes algorithms = stream.element();
    const auto content = stream.enter(der::tagSequence);
    const Bytes type = stream.element();
    if (stream.atEnd(content)) throw Failure(message.name() + " is a detached signature; name the file that was signed as well");

    const Digests digests = digestsOf(hashesIn(algorithms), [&](const auto& update) {
        stream.wrappedOctets([&](ByteView piece) {
            update(piece);
            take(piece);
        });
    });
    if (!stream.atEnd(content)) stream.refuse();
    fields = concat({fields, algorithms, der::sequence({type})});
    while (!stream.atEnd(body)) append(fields, stream.element());
    if (!stream.atEnd(wrapper) || !stream.atEnd(outer)) stream.refuse();
    const Bytes detached = der::sequence({fields});
    return checkSignature(der::sequence({der::oid(oid::signedData), der::element(der::explicitTag(0), detached)}), digests);
}

} // namespace quelta::tools
