#include "commands.h"

#include "certificates.h"
#include "cms_decrypt.h"
#include "cms_encrypt.h"
#include "cms_sign.h"
#include "cms_verify.h"
#include "console.h"
#include "failure.h"
#include "files.h"
#include "text.h"

#include <cstdio>

namespace quelta::tools {

namespace {

std::unique_ptr<TokenProvider> openToken(const TokenOptions& options)
{
    auto provider = openProvider(options.provider);
    if (!options.pin.empty()) provider->usePin(options.pin);
    return provider;
}

std::string orDefault(const std::string& given, const std::string& otherwise)
{
    return given.empty() ? otherwise : given;
}

ByteView viewOf(const std::string& text)
{
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

Bytes signFile(TokenProvider& provider, const TokenKey& key, const KnownDigest& hash, InputFile& file)
{
    auto* csp = dynamic_cast<CspProvider*>(&provider);
    const bool readable = hash.algId == CALG_SHA1 || hash.algId == CALG_SHA_256;
    return csp && readable ? signWithMessageFunctions(*csp, key, hash, file) : signByAttributes(provider, key, hash, file);
}

std::string timeText(const FILETIME& time)
{
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&time, &parts);
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u UTC", unsigned{parts.wYear}, unsigned{parts.wMonth},
                  unsigned{parts.wDay}, unsigned{parts.wHour}, unsigned{parts.wMinute}, unsigned{parts.wSecond});
    return text;
}

void describe(const Signer& signer)
{
    printLine("  signer  " + subjectOf(*signer.certificate));
    printLine("  issuer  " + issuerOf(*signer.certificate));
    printLine("  serial  " + serialOf(*signer.certificate));
    printLine("  hash    " + signer.hashName);
    printLine("  signed  " + (signer.time ? timeText(*signer.time) + ", as the signer says" : "at a time that is not told"));
}

CertificateContext recipientFor(const EncryptOptions& options)
{
    if (!options.certificate.empty()) return std::move(readCertificates(pathOf(options.certificate)).front());
    const auto provider = openToken(options.token);
    return std::move(chooseDecryptionKey(provider->keys(), options.token.container).certificate);
}

} // namespace

void sign(const SignOptions& options)
{
    const KnownDigest& hash = digestOfName(options.hash);
    const std::string target = orDefault(options.output, options.file + ".p7s");
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(target));
    OutputFile output(pathOf(target));

    const auto provider = openToken(options.token);
    const TokenKey key = chooseSigningKey(provider->keys(), options.token.container);
    const Bytes message = signFile(*provider, key, hash, file);
    if (options.pem)
        output.write(viewOf(pemOf(message, "PKCS7")));
    else
        output.write(message);
    output.commit();
    printLine("signed " + options.file + " as " + subjectOf(*key.certificate) + " (key " + key.name + "): " + target);
}

void verify(const VerifyOptions& options)
{
    const auto roots = options.root.empty() ? std::vector<CertificateContext>() : readCertificates(pathOf(options.root));
    const Bytes signature = withoutPem(readSmallFile(pathOf(options.signature)));
    InputFile file(pathOf(options.file));
    const CheckedSignature checked = checkSignature(signature, file);
    std::vector<std::string> chains;
    for (const Signer& signer : checked.signers)
        chains.push_back(roots.empty() ? "not checked; name the root you trust with --root"
                                       : "leads to " + subjectOf(checkChain(signer, checked, roots)));

    printLine("good signature of " + options.file);
    for (std::size_t i = 0; i < chains.size(); ++i) {
        describe(checked.signers[i]);
        printLine("  chain   " + chains[i]);
    }
}

void encrypt(const EncryptOptions& options)
{
    const std::string target = orDefault(options.output, options.file + ".p7m");
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(target));
    OutputFile output(pathOf(target));
    const CertificateContext recipient = recipientFor(options);
    encryptFor(*recipient, file, output);
    output.commit();
    printLine("encrypted " + options.file + " for " + subjectOf(*recipient) + ": " + target);
}

void decrypt(const DecryptOptions& options)
{
    InputFile file(pathOf(options.file));
    refuseSameFile(pathOf(options.file), pathOf(options.output));
    OutputFile output(pathOf(options.output));
    const auto provider = openToken(options.token);
    decryptWith(*provider, options.token.container, file, output);
    output.commit();
    printLine("decrypted " + options.file + ": " + options.output);
}

} // namespace quelta::tools
