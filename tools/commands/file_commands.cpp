#include "tools/commands/commands.h"

#include "base/table.h"
#include "tools/cms/certificates.h"
#include "tools/cms/enveloped_data.h"
#include "tools/cms/sign.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/text.h"

namespace quelta::tools {

namespace {

// Returns the default output: standard output for standard input, else a file beside the input.
std::string targetOf(const std::string& given, const std::string& file, const char* ending)
{
    if (!given.empty()) return given;
    return isStandardStream(pathOf(file)) ? file : file + ending;
}

std::string shownTarget(const std::string& file)
{
    return isStandardStream(pathOf(file)) ? "standard output" : file;
}

Json signFile(const SigningKey& signer, const std::string& name, const std::string& target, const SignOptions& options)
{
    InputFile file(pathOf(name));
    refuseSameFile(pathOf(name), pathOf(target));
    std::error_code ignored;
    const bool replaces = !options.add && std::filesystem::exists(pathOf(target), ignored);
    OutputFile output(pathOf(target));
    if (options.add)
        output.write(signToo(signer, readMessage(pathOf(target)), file));
    else if (options.attached)
        signAttached(signer, file, output);
    else
        output.write(signDetached(signer, file));
    output.commit();
    return {{"file", name}, {"signature", target}, {"replaced", replaces}};
}

std::string signatureTarget(const SignOptions& options, const std::string& file)
{
    return targetOf(options.output, file, options.attached ? ".p7m" : ".p7s");
}

// Opens each input once, so that a missing file is found before the PIN is asked for.
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
    if (options.certificate.empty()) return std::move(openKey(options.token, encryption, options.force).key.certificate);
    CertificateContext certificate = std::move(readCertificates(pathOf(options.certificate)).front());
    if (!options.force) refuseForEncryption(*certificate);
    return certificate;
}

} // namespace

Outcome sign(const SignOptions& options)
{
    const KnownDigest& hash = *findRow(knownDigests, &KnownDigest::name, options.hash);
    refuseUnusableFiles(options);
    const OpenedKey opened = openKey(options.token, signing, options.force);
    logIn(*opened.provider, options.token.pin);
    if (options.token.pin.isDialog()) askForPin(*opened.provider, opened.key);

    const SigningKey signer{*opened.provider, opened.key, hash};
    const std::string who = subjectOf(*opened.key.certificate);
    Outcome outcome{{}, {{"signer", who}, {"key", opened.key.name}, {"signed", Json::array()}}};
    for (const std::string& file : options.files) {
        const std::string target = signatureTarget(options, file);
        const Json made = signFile(signer, file, target, options);
        outcome.lines.push_back("signed " + inputName(pathOf(file)) + " as " + who + " (key " + shortName(opened.key) +
                                "): " + shownTarget(target) + (made["replaced"] ? ", in place of the one that was there" : ""));
        outcome.json["signed"].push_back(made);
    }
    return outcome;
}

Outcome encrypt(const EncryptOptions& options)
{
    const std::string target = targetOf(options.output, options.file, ".p7m");
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(target));
    OutputFile output(pathOf(target));
    const CertificateContext recipient = recipientFor(options);
    encryptFor(*recipient, file, output);
    output.commit();
    const std::string who = subjectOf(*recipient);
    return {{"encrypted " + file.name() + " for " + who + ": " + shownTarget(target)},
            {{"file", options.file}, {"recipient", who}, {"message", target}}};
}

Outcome decrypt(const DecryptOptions& options)
{
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(options.output));
    OutputFile output(pathOf(options.output));
    const auto provider = openAny(options.token);
    logIn(*provider, options.token.pin);
    decryptWith(*provider, options.token.key, file, output);
    output.commit();
    return {{"decrypted " + file.name() + ": " + shownTarget(options.output)},
            {{"file", options.file}, {"content", options.output}}};
}

} // namespace quelta::tools
