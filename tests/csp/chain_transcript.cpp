#include "csp/csp_scenario.h"

#include <climits>
#include <span>

namespace quelta::test {

namespace {

Recorder* listener = nullptr;

HCRYPTMSG WINAPI openToEncode(DWORD encoding, DWORD flags, DWORD type, const void* info, LPSTR inner, PCMSG_STREAM_INFO stream)
{
    const auto& message = *static_cast<const CMSG_SIGNED_ENCODE_INFO*>(info);
    std::string order;
    for (const auto& blob : std::span(message.rgCertEncoded, message.cCertEncoded)) order += toHex({blob.pbData, blob.cbData});
    const std::string kind = "message of type " + std::to_string(type) + ", " + std::to_string(message.cSigners) + " signers: ";
    if (listener) listener->writeDown(kind + order);
    static const auto call = reinterpret_cast<decltype(&CryptMsgOpenToEncode)>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleA("crypt32.dll"), "CryptMsgOpenToEncode")));
    return call(encoding, flags, type, info, inner, stream);
}

} // namespace

// Takes the place of the import library's symbol. A message sorts its certificates, so only the call shows their order.
extern "C" {
decltype(&CryptMsgOpenToEncode) __imp_CryptMsgOpenToEncode = openToEncode; // NOLINT(bugprone-reserved-identifier)
}

class ChainTranscript : public CspScenario {
protected:
    ChainTranscript() : pair(token.withKeyPair(usageSigning, algorithmRsa2048))
    {
        listener = &recorder;
        openContainerOf(pair);
        recorder.call(publicKeyOf(pair), "public key 1");
        recorder.call(counting(256), "another public key");
    }
    ~ChainTranscript() override { listener = nullptr; }
    void ask(const Place& place = room(4000)) { csp("CPGetProvParam", {PP_CERTCHAIN, place}); }

    Bytes make(const std::string& subject, const std::string& issuer)
    {
        const Bytes certificate = unsignedCertificate(subject, issuer);
        recorder.call(certificate, "(" + subject + " by " + issuer + ")");
        return certificate;
    }

    QueltaKeyPair& pair;
};

TRANSCRIPT(ChainTranscript, "the chain holds the issuers up to the root and no other certificate")
{
    token.withCertificateOf(token.withKeyPair(usageSigning, algorithmRsa1024), make("Stranger", "Root"));
    token.withCertificate(Bytes(40, 0x30));
    token.withCertificate(make("Issuing", "Root"));
    token.withCertificateOf(pair, make("Leaf", "Issuing"));
    token.withCertificate(make("Root", "Root"));
    ask();
}

TRANSCRIPT(ChainTranscript, "the chain ends at an unknown issuer and in a circle")
{
    errorsAlone();
    token.withCertificateOf(pair, make("Leaf", "Issuing"));
    ask();
    token.withCertificate(make("Issuing", "Elsewhere"));
    ask();
    token.withCertificate(make("Elsewhere", "Issuing"));
    ask();
}

TRANSCRIPT(ChainTranscript, "the first of two issuers with the same name is taken")
{
    errorsAlone();
    token.withCertificateOf(pair, make("Leaf", "Issuing"));
    for (const char* root : {"First root", "Second root"}) {
        token.withCertificate(make("Issuing", root));
        token.withCertificate(make(root, root));
    }
    ask();
}

TRANSCRIPT(ChainTranscript, "the first of two certificates of the key leads the chain")
{
    for (const char* subject : {"First", "Second"}) token.withCertificateOf(pair, make(subject, "Root"));
    token.withCertificate(make("Root", "Root"));
    errorsAlone();
    ask();
}

TRANSCRIPT(ChainTranscript, "a certificate belongs to every key pair with its public key and to no other")
{
    const Bytes leaf = make("Leaf", "Leaf");
    token.withCertificateOf(pair, leaf);
    auto& twin = token.withKeyPair(usageSigning, algorithmRsa2048);
    setPublicKey(twin, publicKeyOf(pair));
    ask(query(77));
    errorsAlone();
    openContainerOf(twin);
    for (const DWORD size : {447, 448}) ask(room(size));
    token.willAnswer(Call::getCertificateDetails, 3);
    ask(query(77));
    token.detailsGive(leaf, counting(256));
    ask(query(77));
    recorder.note("no container is no name for all");
    token.withCertificateOf(pair, leaf);
    open();
    ask(query(77));
}

TRANSCRIPT(ChainTranscript, "a leaf that can't be parsed is a bad key")
{
    auto& record = token.withCertificateOf(pair, Bytes(40, 0x30));
    ask(room(100));
    errorsAlone();
    token.detailsGive({}, {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    record.certificateLength = INT_MAX;
    ask(room(100));
}

} // namespace quelta::test
