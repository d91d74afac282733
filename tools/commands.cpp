#include "commands.h"

#include "ber_stream.h"
#include "certificates.h"
#include "cms_decrypt.h"
#include "cms_encrypt.h"
#include "cms_sign.h"
#include "cms_verify.h"
#include "failure.h"
#include "files.h"
#include "open_token.h"
#include "text.h"

namespace quelta::tools {

namespace {

constexpr auto pemLabel = "CMS";

// Standard input goes to standard output, and a file beside itself.
std::string targetOf(const std::string& given, const std::string& file, const char* ending)
{
    if (!given.empty()) return given;
    return isStandardStream(pathOf(file)) ? file : file + ending;
}

std::string shown(const std::string& file)
{
    return isStandardStream(pathOf(file)) ? "standard input" : file;
}

std::string shownTarget(const std::string& file)
{
    return isStandardStream(pathOf(file)) ? "standard output" : file;
}

Bytes signatureIn(const std::string& path)
{
    InputFile file(pathOf(path));
    MessageReader reader(file);
    return BerStream(file.name(), [&](std::span<unsigned char> room) { return reader.read(room); }).element();
}

Bytes signatureOf(const SigningKey& signer, InputFile& file, const std::string& addTo)
{
    return addTo.empty() ? signDetached(signer, file) : signToo(signer, signatureIn(addTo), file);
}

Json signFile(const SigningKey& signer, const std::string& name, const std::string& target, const SignOptions& options)
{
    InputFile file(pathOf(name));
    refuseSameFile(pathOf(name), pathOf(target));
    OutputFile output(pathOf(target));
    MessageWriter writer(output, options.pem ? pemLabel : "");
    if (options.attached && !options.add)
        signAttached(signer, file, writer);
    else
        writer.write(signatureOf(signer, file, options.add ? target : ""));
    writer.finish();
    output.commit();
    return {{"file", name}, {"signature", target}};
}

std::string signatureTarget(const SignOptions& options, const std::string& file)
{
    return targetOf(options.output, file, options.attached ? ".p7m" : ".p7s");
}

// Before anybody is asked for a PIN.
void refuseUnusableFiles(const SignOptions& options)
{
    if (options.files.size() > 1 && !options.output.empty())
        throw Failure("-o names one signature, and there are several files; leave it out, and each gets its own beside it");
    for (const std::string& file : options.files) {
        const InputFile readable(pathOf(file));
        const OutputFile writable(pathOf(signatureTarget(options, file)));
    }
}

Json jsonOf(const Signer& signer)
{
    const CERT_CONTEXT& certificate = *signer.certificate;
    return {{"subject", subjectOf(certificate)},
            {"issuer", issuerOf(certificate)},
            {"serial", serialOf(certificate)},
            {"hash", signer.hashName},
            {"signed", signer.time ? Json(timeText(*signer.time)) : Json()}};
}

void describe(Answer& answer, const Signer& signer)
{
    const CERT_CONTEXT& certificate = *signer.certificate;
    const std::string when = signer.time ? timeText(*signer.time) + ", as the signer says" : "at a time that is not told";
    for (const std::string& line : {"  signer  " + subjectOf(certificate), "  issuer  " + issuerOf(certificate),
                                    "  serial  " + serialOf(certificate), "  hash    " + signer.hashName, "  signed  " + when})
        answer.lines.push_back(line);
    answer.json["signers"].push_back(jsonOf(signer));
}

struct ChainWish {
    std::vector<CertificateContext> roots;
    FILETIME at;
};

struct ChainText {
    std::string text;
    bool leads;
};

ChainText chainOf(const Signer& signer, const CheckedSignature& checked, const ChainWish& wish)
{
    if (!wish.roots.empty())
        return {"leads to " + subjectOf(checkChain(signer, checked, wish.roots, wish.at)) + ", which you named", true};
    const SystemChain chain = checkSystemChain(signer, checked, wish.at);
    if (chain.trusted) return {"leads to " + chain.end + ", which this system trusts", true};
    return {"NOT CHECKED: it ends in " + chain.end +
                ", which this system does not trust; name the root that you trust with --root",
            false};
}

void describeChains(Answer& answer, const CheckedSignature& checked, const ChainWish& wish)
{
    std::vector<ChainText> chains;
    for (const Signer& signer : checked.signers) chains.push_back(chainOf(signer, checked, wish));
    for (std::size_t i = 0; i < chains.size(); ++i) {
        describe(answer, checked.signers[i]);
        answer.lines.push_back("  chain   " + chains[i].text);
        answer.json["signers"].back()["chain"] = chains[i].text;
        answer.json["signers"].back()["chainChecked"] = chains[i].leads;
        if (!chains[i].leads) answer.status = exitChainNotChecked;
    }
    const std::string time = timeText(wish.at);
    answer.lines.push_back("judged for " + time + "; whether a certificate was revoked was not looked at");
    answer.json["judgedFor"] = time;
    answer.json["revocationChecked"] = false;
}

CheckedSignature check(const VerifyOptions& options, std::optional<OutputFile>& content)
{
    if (options.file.empty()) {
        InputFile message(pathOf(options.signature));
        return checkAttached(message, [&](ByteView piece) {
            if (content) content->write(piece);
        });
    }
    const Bytes signature = signatureIn(options.signature);
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

CertificateContext recipientFor(const EncryptOptions& options)
{
    if (!options.certificate.empty()) return std::move(readCertificates(pathOf(options.certificate)).front());
    return std::move(openKey(options.token, false, chooseEncryptionKey).key.certificate);
}

Answer answerOf(const std::string& line, Json json, const std::string& target)
{
    return {{line}, std::move(json), exitDone, isStandardStream(pathOf(target))};
}

} // namespace

Answer sign(const SignOptions& options)
{
    const KnownDigest& hash = digestOfName(options.hash);
    refuseUnusableFiles(options);
    const OpenedKey opened = openKey(options.token, options.force, chooseSigningKey);
    logIn(*opened.provider, options.token.pin);
    if (options.token.pin.isDialog()) askForPin(*opened.provider, opened.key);

    const SigningKey signer{*opened.provider, opened.key, hash};
    const std::string who = subjectOf(*opened.key.certificate);
    Answer answer;
    answer.json = {{"signer", who}, {"key", opened.key.name}, {"signed", Json::array()}};
    for (const std::string& file : options.files) {
        const std::string target = signatureTarget(options, file);
        answer.json["signed"].push_back(signFile(signer, file, target, options));
        answer.lines.push_back("signed " + shown(file) + " as " + who + " (key " + shortName(opened.key) +
                               "): " + shownTarget(target));
        answer.toErrors |= isStandardStream(pathOf(target));
    }
    return answer;
}

Answer verify(const VerifyOptions& options)
{
    ChainWish wish{{}, options.at.empty() ? timeNow() : timeOf(options.at)};
    if (!options.root.empty()) wish.roots = readCertificates(pathOf(options.root));
    std::optional<OutputFile> content;
    openContent(options, content);
    const CheckedSignature checked = check(options, content);
    const std::string signedFile = options.file.empty() ? options.signature : options.file;
    Answer answer{{"good signature of " + shown(signedFile)}, {{"good", true}, {"signers", Json::array()}}};
    answer.toErrors = isStandardStream(pathOf(options.output));
    describeChains(answer, checked, wish);
    if (content) content->commit();
    return answer;
}

Answer encrypt(const EncryptOptions& options)
{
    const std::string target = targetOf(options.output, options.file, ".p7m");
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(target));
    OutputFile output(pathOf(target));
    const CertificateContext recipient = recipientFor(options);
    MessageWriter writer(output, options.pem ? pemLabel : "");
    encryptFor(*recipient, file, writer);
    writer.finish();
    output.commit();
    const std::string who = subjectOf(*recipient);
    return answerOf("encrypted " + shown(options.file) + " for " + who + ": " + shownTarget(target),
                    {{"file", options.file}, {"recipient", who}, {"message", target}}, target);
}

Answer decrypt(const DecryptOptions& options)
{
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(options.output));
    OutputFile output(pathOf(options.output));
    const auto provider = openAny(options.token);
    logIn(*provider, options.token.pin);
    decryptWith(*provider, options.token.key, file, output);
    output.commit();
    return answerOf("decrypted " + shown(options.file) + ": " + shownTarget(options.output),
                    {{"file", options.file}, {"content", options.output}}, options.output);
}

} // namespace quelta::tools
