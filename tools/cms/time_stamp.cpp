#include "tools/cms/time_stamp.h"

#include "common/der_reader.h"
#include "common/known_algorithms.h"
#include "common/object_ids.h"
#include "tools/cms/certificates.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"

namespace quelta::tools {

namespace {

struct Stamp {
    const KnownDigest* hash;
    Bytes imprint;
    FILETIME time;
};

// Of a TSTInfo, as far as it is asked for here.
std::optional<Stamp> readStamp(ByteView info)
{
    auto fields = der::Reader(info).enter(der::tagSequence);
    if (!fields || fields->smallInteger() != 1 || !fields->next(der::tagOid)) return std::nullopt;
    auto imprint = fields->enter(der::tagSequence);
    auto algorithm = imprint ? imprint->enter(der::tagSequence) : std::nullopt;
    const auto oid = algorithm ? algorithm->oid() : std::nullopt;
    const KnownDigest* hash = oid ? digestOfOid(*oid) : nullptr;
    const auto digest = imprint ? imprint->octetString() : std::nullopt;
    const auto number = fields->next(der::tagInteger);
    const auto encodedTime = fields->next(der::tagGeneralizedTime);
    const auto time = encodedTime ? decodedTime(encodedTime->whole) : std::nullopt;
    if (!hash || !digest || !number || !time) return std::nullopt;
    return Stamp{hash, toBytes(*digest), *time};
}

struct Token {
    Bytes messageWithoutContent;
    Bytes content;
    Stamp stamp;
};

std::optional<Token> readToken(ByteView token)
{
    const auto message = parseSignedData(token);
    if (!message) return std::nullopt;
    const auto content = message->enclosed();
    const SignedData bare = message->withoutContent();
    if (!content || bare.content != der::sequence({der::oid(oid::timeStampInfo)})) return std::nullopt;
    const auto stamp = readStamp(*content);
    if (!stamp) return std::nullopt;
    return Token{bare.encoded(), *content, *stamp};
}

// The content is the token's own, and no file that somebody may have changed.
CheckedSignature checkToken(const Token& token)
{
    try {
        Digests digests;
        for (const KnownDigest* hash : hashesOf(token.messageWithoutContent))
            digests.try_emplace(hash, digestOf(*hash, token.content));
        return checkSignature(token.messageWithoutContent, digests);
    } catch (const Refusal&) {
        throw Refusal("its own signature does not hold");
    }
}

// Alone, and so that nobody who does not know of it takes the certificate for another purpose.
bool isForTimeStampsAlone(const CERT_CONTEXT& certificate)
{
    const CERT_INFO& info = *certificate.pCertInfo;
    const CERT_EXTENSION* usage = CertFindExtension(szOID_ENHANCED_KEY_USAGE, info.cExtension, info.rgExtension);
    return usage && usage->fCritical && sameBytes(viewOf(usage->Value), der::sequence({der::oid(oid::timeStamping)}));
}

ProvenTime timeProvenBy(ByteView encoded, ByteView signature, const Roots& roots)
{
    const auto token = readToken(encoded);
    if (!token) throw Refusal("it is none that this tool can read");
    const Stamp& stamp = token->stamp;
    if (digestOf(*stamp.hash, signature) != stamp.imprint) throw Refusal("it is of another signature");
    const CheckedSignature checked = checkToken(*token);
    if (checked.signers.size() != 1) throw Refusal("it has several signers");
    const Signer& authority = checked.signers.front();
    if (!isForTimeStampsAlone(*authority.certificate))
        throw Refusal("the certificate of its signer is not for time stamps, critically and alone");
    const ChainEnd end = checkChain(authority, checked, roots, stamp.time, ChainPurpose::timeStamps);
    if (!end.trusted)
        throw Refusal("its authority's chain ends in " + end.name +
                      ", which this system does not trust; name the root that you trust with --root");
    return {stamp.time, subjectOf(*authority.certificate)};
}

} // namespace

StampFindings judgeTimeStamps(const Signer& signer, const Roots& roots)
{
    StampFindings findings;
    for (const Bytes& token : signer.timeStamps) {
        try {
            ProvenTime proven = timeProvenBy(token, signer.value, roots);
            if (!findings.proven || CompareFileTime(&proven.time, &findings.proven->time) < 0)
                findings.proven = std::move(proven);
        } catch (const Failure& failure) {
            findings.doubts.emplace_back(failure.what());
        }
    }
    return findings;
}

} // namespace quelta::tools
