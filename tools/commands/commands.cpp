#include "tools/commands/commands.h"

#include "tools/cms/certificates.h"
#include "tools/cms/decrypt.h"
#include "tools/cms/encrypt.h"
#include "tools/cms/sign.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"
#include "tools/token/open_token.h"

namespace quelta::tools {

namespace {

constexpr auto pemLabel = "CMS";

// Standard input goes to standard output, and a file beside itself.
std::string targetOf(const std::string& given, const std::string& file, const char* ending)
{
    if (!given.empty()) return given;
    return isStandardStream(pathOf(file)) ? file : file + ending;
}

std::string shownTarget(const std::string& file)
{
    return isStandardStream(pathOf(file)) ? "standard output" : file;
}

Bytes signatureOf(const SigningKey& signer, InputFile& file, const std::string& addTo)
{
    return addTo.empty() ? signDetached(signer, file) : signToo(signer, readMessage(pathOf(addTo)), file);
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
        const auto target = pathOf(signatureTarget(options, file));
        const OutputFile writable(target);
        if (options.add) const InputFile addedTo(target);
    }
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
        answer.lines.push_back("signed " + inputName(pathOf(file)) + " as " + who + " (key " + shortName(opened.key) +
                               "): " + shownTarget(target));
        answer.toErrors |= isStandardStream(pathOf(target));
    }
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
    return answerOf("encrypted " + inputName(pathOf(options.file)) + " for " + who + ": " + shownTarget(target),
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
    return answerOf("decrypted " + inputName(pathOf(options.file)) + ": " + shownTarget(options.output),
                    {{"file", options.file}, {"content", options.output}}, options.output);
}

} // namespace quelta::tools
