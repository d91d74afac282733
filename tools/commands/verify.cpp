#include "tools/commands/verify.h"

#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/cms/signed_data.h"
#include "tools/cms/time_stamp.h"
#include "tools/cms/verify.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

#include <iterator>
#include <optional>

namespace quelta::tools {

namespace {

struct ChainWish {
    Roots roots;
    // Without it each signature's own time stamp, or now.
    std::optional<FILETIME> at;
};

// When a signer's chain is judged, and why then.
struct JudgedTime {
    FILETIME time;
    const char* by;
    std::string text;
    StampFindings stamps;
};

JudgedTime judgedTime(const Signer& signer, const ChainWish& wish)
{
    if (wish.at) return {*wish.at, "--at", timeText(*wish.at) + ", as --at says", {}};
    StampFindings stamps = judgeTimeStamps(signer, wish.roots);
    if (!stamps.proven) {
        const FILETIME now = timeNow();
        return {now, "now", "now, " + timeText(now), std::move(stamps)};
    }
    const auto& [time, authority] = *stamps.proven;
    const std::string text = timeText(time) + ": signed before, as a time stamp of " + authority + " proves";
    return {time, "time stamp", text, std::move(stamps)};
}

struct JudgedChain {
    JudgedTime when;
    std::string text;
    bool trusted;
};

JudgedChain judge(const Signer& signer, const CheckedSignature& checked, const ChainWish& wish)
{
    JudgedTime when = judgedTime(signer, wish);
    try {
        const ChainEnd end = checkChain(signer, checked, wish.roots, when.time);
        const std::string who = !wish.roots.empty() ? "you named"
                                : end.trusted       ? "this system trusts"
                                                    : "this system does not trust";
        const std::string text = (end.trusted ? "leads to " : "NOT CHECKED: it ends in ") + end.name + ", which " + who +
                                 (end.trusted ? "" : "; name the root that you trust with --root");
        return {std::move(when), text, end.trusted};
    } catch (const Refusal& refusal) {
        std::string text = std::string(refusal.what()) + " (judged for " + when.text;
        for (const std::string& doubt : when.stamps.doubts) text += "; a time stamp proves nothing: " + doubt;
        throw Refusal(text + ")");
    }
}

void describe(Answer& answer, const Signer& signer, const JudgedChain& chain)
{
    const CERT_CONTEXT& certificate = *signer.certificate;
    const std::string signedAt = signer.time ? timeText(*signer.time) + ", as the signer says" : "at a time that is not told";
    for (const std::string& line :
         {"  signer  " + subjectOf(certificate), "  issuer  " + issuerOf(certificate), "  serial  " + serialOf(certificate),
          "  hash    " + signer.hashName, "  signed  " + signedAt, "  chain   " + chain.text, "  judged  for " + chain.when.text})
        answer.lines.push_back(line);
    for (const std::string& doubt : chain.when.stamps.doubts) answer.lines.push_back("  stamp   proves nothing: " + doubt);
}

Json jsonOf(const Signer& signer, const JudgedChain& chain)
{
    const CERT_CONTEXT& certificate = *signer.certificate;
    const auto& [proven, doubts] = chain.when.stamps;
    return {{"subject", subjectOf(certificate)},
            {"issuer", issuerOf(certificate)},
            {"serial", serialOf(certificate)},
            {"hash", signer.hashName},
            {"signed", signer.time ? Json(timeText(*signer.time)) : Json()},
            {"chain", chain.text},
            {"chainChecked", chain.trusted},
            {"judgedFor", timeText(chain.when.time)},
            {"judgedBy", chain.when.by},
            {"timeStamp", proven ? Json{{"time", timeText(proven->time)}, {"authority", proven->authority}} : Json()},
            {"timeStampsThatProveNothing", doubts}};
}

// All are judged before anything is said of one.
void describeSigners(Answer& answer, const CheckedSignature& checked, const ChainWish& wish)
{
    std::vector<JudgedChain> chains;
    for (const Signer& signer : checked.signers) chains.push_back(judge(signer, checked, wish));
    for (std::size_t i = 0; i < chains.size(); ++i) {
        describe(answer, checked.signers[i], chains[i]);
        answer.json["signers"].push_back(jsonOf(checked.signers[i], chains[i]));
        if (!chains[i].trusted) answer.status = exitChainNotChecked;
    }
    answer.lines.emplace_back("whether a certificate was revoked was not looked at");
    answer.json["revocationChecked"] = false;
}

ChainWish wishOf(const VerifyOptions& options)
{
    ChainWish wish;
    if (!options.at.empty()) wish.at = timeOf(options.at);
    for (const std::string& file : options.roots) {
        Roots more = readCertificates(pathOf(file));
        wish.roots.insert(wish.roots.end(), std::move_iterator(more.begin()), std::move_iterator(more.end()));
    }
    return wish;
}

CheckedSignature check(const VerifyOptions& options, std::optional<OutputFile>& content)
{
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

void openContent(const VerifyOptions& options, std::optional<OutputFile>& content)
{
    if (options.output.empty()) return;
    if (!options.file.empty()) throw Failure("-o takes the content of a signature that has it within; leave FILE out then");
    refuseSameFile(pathOf(options.signature), pathOf(options.output));
    content.emplace(pathOf(options.output));
}

} // namespace

Answer verify(const VerifyOptions& options)
{
    const ChainWish wish = wishOf(options);
    std::optional<OutputFile> content;
    openContent(options, content);
    const CheckedSignature checked = check(options, content);
    const std::string& signedFile = options.file.empty() ? options.signature : options.file;
    Answer answer{{"good signature of " + inputName(pathOf(signedFile))}, {{"good", true}, {"signers", Json::array()}}};
    answer.toErrors = isStandardStream(pathOf(options.output));
    describeSigners(answer, checked, wish);
    if (content) content->commit();
    return answer;
}

} // namespace quelta::tools
