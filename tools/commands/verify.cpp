#include "tools/commands/commands.h"

#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace quelta::tools {

namespace {

struct ChainWish {
    Roots roots;
    FILETIME at;
    std::string atText;
};

std::string textOf(const ChainEnd& end, const ChainWish& wish)
{
    if (!wish.roots.empty()) return "leads to " + end.name + ", which you named";
    if (end.trusted) return "leads to " + end.name + ", which this system trusts";
    const std::string advice = "; name the root that you trust with --root";
    if (!end.missingIssuer.empty()) return "NOT CHECKED: the certificate of its issuer is missing, " + end.missingIssuer + advice;
    return "NOT CHECKED: it ends in " + end.name + ", which this system does not trust" + advice;
}

ChainEnd judge(const Signer& signer, const CheckedSignature& checked, const ChainWish& wish)
{
    try {
        return checkChain(signer, checked, wish.roots, wish.at);
    } catch (const Refusal& refusal) {
        throw Refusal(std::string(refusal.what()) + " (judged for " + wish.atText + ")");
    }
}

void describe(Outcome& outcome, const Signer& signer, const ChainEnd& end, const ChainWish& wish)
{
    const CERT_CONTEXT& certificate = *signer.certificate;
    const std::string signedAt = signer.time ? timeText(*signer.time) + ", as the signer says" : "at a time that is not told";
    for (const std::string& line : {"  signer  " + subjectOf(certificate), "  issuer  " + issuerOf(certificate),
                                    "  serial  " + serialOf(certificate), "  hash    " + signer.hashName, "  signed  " + signedAt,
                                    "  chain   " + textOf(end, wish), "  judged  for " + wish.atText})
        outcome.lines.push_back(line);
    if (signer.hasTimeStamp) outcome.lines.emplace_back("  stamp   there is a time stamp, which was not checked");
    outcome.json["signers"].push_back({{"subject", subjectOf(certificate)},
                                       {"issuer", issuerOf(certificate)},
                                       {"serial", serialOf(certificate)},
                                       {"hash", signer.hashName},
                                       {"signed", signer.time ? Json(timeText(*signer.time)) : Json()},
                                       {"chain", textOf(end, wish)},
                                       {"chainChecked", end.trusted},
                                       {"judgedFor", timeText(wish.at)},
                                       {"hasTimeStamp", signer.hasTimeStamp}});
}

Outcome describeAll(const std::string& file, const CheckedSignature& checked, const ChainWish& wish)
{
    std::vector<ChainEnd> chains;
    for (const Signer& signer : checked.signers) chains.push_back(judge(signer, checked, wish));
    const bool trusted = std::ranges::all_of(chains, &ChainEnd::trusted);
    Outcome outcome{{"good signature of " + file + (trusted ? "" : ", but the signer's chain was NOT CHECKED")},
                    {{"good", true}, {"signers", Json::array()}},
                    trusted ? exitDone : exitChainNotChecked};
    for (std::size_t i = 0; i < chains.size(); ++i) describe(outcome, checked.signers[i], chains[i], wish);
    outcome.lines.emplace_back("whether a certificate was revoked was not looked at");
    outcome.json["revocationChecked"] = false;
    outcome.json["timeStampsChecked"] = false;
    return outcome;
}

ChainWish wishOf(const VerifyOptions& options)
{
    ChainWish wish{{}, options.at.empty() ? timeNow() : timeOf(options.at), {}};
    wish.atText = options.at.empty() ? "now, " + timeText(wish.at) : timeText(wish.at) + ", as --at says";
    for (const std::string& file : options.roots) {
        Roots more = readCertificates(pathOf(file));
        wish.roots.insert(wish.roots.end(), std::move_iterator(more.begin()), std::move_iterator(more.end()));
    }
    return wish;
}

CheckedSignature check(const VerifyOptions& options, std::optional<OutputFile>& content)
{
    if (!options.output.empty()) {
        if (!options.file.empty()) throw Failure("-o takes the content of a signature that has it within; leave FILE out then");
        refuseSameFile(pathOf(options.signature), pathOf(options.output));
        content.emplace(pathOf(options.output));
    }
    if (options.file.empty()) {
        InputFile message(pathOf(options.signature));
        return checkAttached(message, [&](ByteView piece) {
            if (content) content->write(piece);
        });
    }
    const Bytes signature = readMessage(pathOf(options.signature));
    InputFile file(pathOf(options.file));
    return checkSignature(signature, file);
}

} // namespace

Outcome verify(const VerifyOptions& options)
{
    const ChainWish wish = wishOf(options);
    std::optional<OutputFile> content;
    const CheckedSignature checked = check(options, content);
    Outcome outcome = describeAll(inputName(pathOf(options.file.empty() ? options.signature : options.file)), checked, wish);
    if (content) content->commit();
    return outcome;
}

} // namespace quelta::tools
