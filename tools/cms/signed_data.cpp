#include "tools/cms/signed_data.h"

#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/ber_stream.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

#include <algorithm>

namespace quelta::tools {

namespace {

constexpr std::string_view signingCertificateV2 = "1.2.840.113549.1.9.16.2.47";
constexpr unsigned char constructedOctets = der::tagOctetString | 0x20;

Bytes attribute(std::string_view type, ByteView value)
{
    return der::sequence({der::oid(type), der::setOf({toBytes(value)})});
}

Bytes signingTimeNow()
{
    const FILETIME now = timeNow();
    Bytes encoded(64);
    auto size = static_cast<DWORD>(encoded.size());
    if (!CryptEncodeObject(X509_ASN_ENCODING, X509_CHOICE_OF_TIME, &now, encoded.data(), &size))
        failWithLastError("can't encode the time");
    encoded.resize(size);
    return encoded;
}

// SHA-256 is the attribute's default, so DER leaves its name out.
Bytes signingCertificate(const CERT_CONTEXT& signer)
{
    const Bytes issuer = der::sequence({der::element(der::explicitTag(4), viewOf(signer.pCertInfo->Issuer))});
    const Bytes serial = der::element(der::tagInteger, serialContent(signer));
    const Bytes hash = der::octetString(digestOf(knownDigests[0], encodedOf(signer)));
    return der::sequence({der::sequence({der::sequence({hash, der::sequence({issuer, serial})})})});
}

Bytes digestAlgorithm(const KnownDigest& hash)
{
    return der::sequence({der::oid(hash.oid)});
}

Bytes signatureAlgorithm(const KnownDigest& hash, const CERT_CONTEXT& signer)
{
    if (holdsRsaKey(signer)) return der::sequence({der::oid(oid::rsaEncryption), der::null()});
    return der::sequence({der::oid(hash.ecdsaOid)});
}

void addOnce(std::vector<Bytes>& to, Bytes element)
{
    if (std::ranges::find(to, element) == to.end()) to.push_back(std::move(element));
}

std::vector<Bytes> elementsOf(const std::optional<der::Element>& set)
{
    std::vector<Bytes> elements;
    der::Reader reader(set ? set->content : ByteView());
    while (const auto element = reader.next()) elements.push_back(toBytes(element->whole));
    return elements;
}

Bytes optionalSet(const std::vector<Bytes>& elements, unsigned char number)
{
    return elements.empty() ? Bytes() : der::setOf(elements, der::explicitTag(number));
}

} // namespace

Bytes signedAttributes(ByteView contentDigest, const CERT_CONTEXT& signer)
{
    return der::setOf({attribute(oid::contentType, der::oid(oid::data)), attribute(oid::signingTime, signingTimeNow()),
                       attribute(oid::messageDigest, der::octetString(contentDigest)),
                       attribute(signingCertificateV2, signingCertificate(signer))});
}

void SignedData::add(const KnownDigest& hash, const CERT_CONTEXT& signer, const Bytes& attributes, ByteView value,
                     const std::vector<Bytes>& more)
{
    addOnce(digestAlgorithms, digestAlgorithm(hash));
    for (const Bytes& certificate : more) addOnce(certificates, certificate);
    // The signature is over a SET OF the attributes. The message has them under the tag [0].
    Bytes sent = attributes;
    sent.at(0) = der::explicitTag(0);
    signerInfos.push_back(der::sequence({der::smallInteger(1), issuerAndSerial(signer), digestAlgorithm(hash), sent,
                                         signatureAlgorithm(hash, signer), der::octetString(value)}));
}

SignedData SignedData::withoutContent() const
{
    SignedData bare = *this;
    auto fields = der::Reader(content).enter(der::tagSequence);
    const auto type = fields ? fields->next(der::tagOid) : std::nullopt;
    if (type) bare.content = der::sequence({type->whole});
    return bare;
}

Bytes SignedData::encoded() const
{
    const Bytes body = der::sequence({version, der::setOf(digestAlgorithms), content, optionalSet(certificates, 0),
                                      optionalSet(revocationLists, 1), der::setOf(signerInfos)});
    return der::sequence({der::oid(oid::signedData), der::element(der::explicitTag(0), body)});
}

SignedData emptySignedData()
{
    return {der::smallInteger(1), {}, der::sequence({der::oid(oid::data)}), {}, {}, {}};
}

std::optional<SignedData> parseSignedData(ByteView message)
{
    auto outer = der::Reader(message).enter(der::tagSequence);
    const auto type = outer ? outer->oid() : std::nullopt;
    auto inner = type && *type == oid::signedData ? outer->enter(der::explicitTag(0)) : std::nullopt;
    auto fields = inner ? inner->enter(der::tagSequence) : std::nullopt;
    if (!fields) return std::nullopt;
    const auto version = fields->next(der::tagInteger);
    const auto algorithms = fields->next(der::tagSet);
    const auto content = fields->next(der::tagSequence);
    const auto certificates = fields->next(der::explicitTag(0));
    const auto lists = fields->next(der::explicitTag(1));
    const auto signers = fields->next(der::tagSet);
    if (!version || !algorithms || !content || !signers) return std::nullopt;
    return SignedData{toBytes(version->whole),  elementsOf(algorithms), toBytes(content->whole),
                      elementsOf(certificates), elementsOf(lists),      elementsOf(signers)};
}

Bytes readMessage(const std::filesystem::path& path)
{
    const Bytes message = withoutPem(readSmallFile(path));
    ByteView rest = message;
    BerStream stream(inputName(path), [&](std::span<unsigned char> room) {
        const ByteView piece = rest.first(std::min(rest.size(), room.size()));
        std::ranges::copy(piece, room.begin());
        rest = rest.subspan(piece.size());
        return piece.size();
    });
    if (!stream.nextIs(der::tagSequence)) stream.refuse();
    return stream.element();
}

Bytes headOfAttached(const KnownDigest& hash)
{
    const auto open = [](unsigned char tag) { return Bytes{tag, 0x80}; };
    return concat({open(der::tagSequence), der::oid(oid::signedData), open(der::explicitTag(0)), open(der::tagSequence),
                   der::smallInteger(1), der::setOf({digestAlgorithm(hash)}), open(der::tagSequence), der::oid(oid::data),
                   open(der::explicitTag(0)), open(constructedOctets)});
}

Bytes tailOfAttached(const SignedData& message)
{
    const Bytes end{0, 0};
    return concat({end, end, end, optionalSet(message.certificates, 0), der::setOf(message.signerInfos), end, end, end});
}

} // namespace quelta::tools
