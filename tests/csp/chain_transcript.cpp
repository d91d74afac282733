#include "csp/csp_scenario.h"

#include <climits>
#include <memory>

namespace quelta::test {

namespace {

constexpr DWORD encoding = X509_ASN_ENCODING | PKCS_7_ASN_ENCODING;

Bytes encodedName(const std::string& name)
{
    Bytes encoded(256);
    DWORD size = static_cast<DWORD>(encoded.size());
    require(CertStrToNameA(encoding, ("CN=" + name).c_str(), CERT_X500_NAME_STR, nullptr, encoded.data(), &size, nullptr),
            "Naming");
    encoded.resize(size);
    return encoded;
}

// Makes certificates through the system's own provider. One key signs them all: they differ in their names.
class CertificateMaker {
public:
    CertificateMaker()
    {
        require(CryptAcquireContextA(&provider_, nullptr, nullptr, PROV_RSA_AES, CRYPT_VERIFYCONTEXT), "The system's provider");
        require(CryptGenKey(provider_, AT_SIGNATURE, 1024 << 16, &key_), "Making a key");
        DWORD size = static_cast<DWORD>(publicKey_.size());
        auto* info = reinterpret_cast<CERT_PUBLIC_KEY_INFO*>(publicKey_.data());
        require(CryptExportPublicKeyInfo(provider_, AT_SIGNATURE, encoding, info, &size), "Exporting the key");
    }
    ~CertificateMaker()
    {
        CryptDestroyKey(key_);
        CryptReleaseContext(provider_, 0);
    }
    CertificateMaker(const CertificateMaker&) = delete;
    CertificateMaker& operator=(const CertificateMaker&) = delete;

    Bytes make(const std::string& subject, const std::string& issuer)
    {
        Bytes names[] = {encodedName(subject), encodedName(issuer)};
        char algorithm[] = szOID_RSA_SHA1RSA;
        CERT_INFO info{};
        info.dwVersion = CERT_V3;
        info.SerialNumber = {sizeof serial_, reinterpret_cast<BYTE*>(&++serial_)};
        info.SignatureAlgorithm.pszObjId = algorithm;
        info.Subject = {static_cast<DWORD>(names[0].size()), names[0].data()};
        info.Issuer = {static_cast<DWORD>(names[1].size()), names[1].data()};
        GetSystemTimeAsFileTime(&info.NotBefore);
        info.NotAfter = {info.NotBefore.dwLowDateTime, info.NotBefore.dwHighDateTime + 10000};
        info.SubjectPublicKeyInfo = *reinterpret_cast<const CERT_PUBLIC_KEY_INFO*>(publicKey_.data());
        Bytes encoded(1024);
        DWORD size = static_cast<DWORD>(encoded.size());
        require(CryptSignAndEncodeCertificate(provider_, AT_SIGNATURE, encoding, X509_CERT_TO_BE_SIGNED, &info,
                                              &info.SignatureAlgorithm, nullptr, encoded.data(), &size),
                "Signing");
        encoded.resize(size);
        return encoded;
    }

private:
    HCRYPTPROV provider_ = 0;
    HCRYPTKEY key_ = 0;
    Bytes publicKey_ = Bytes(1024);
    DWORD serial_ = 0;
};

std::vector<Bytes> certificatesOf(const Bytes& pkcs7)
{
    const std::unique_ptr<void, decltype(&CryptMsgClose)> message(CryptMsgOpenToDecode(encoding, 0, 0, 0, nullptr, nullptr),
                                                                  &CryptMsgClose);
    require(CryptMsgUpdate(message.get(), pkcs7.data(), static_cast<DWORD>(pkcs7.size()), TRUE), "Reading the message");
    std::vector<Bytes> certificates;
    DWORD size = 0;
    while (CryptMsgGetParam(message.get(), CMSG_CERT_PARAM, static_cast<DWORD>(certificates.size()), nullptr, &size)) {
        Bytes der(size);
        CryptMsgGetParam(message.get(), CMSG_CERT_PARAM, static_cast<DWORD>(certificates.size()), der.data(), &size);
        certificates.push_back(der);
    }
    return certificates;
}

} // namespace

// The message is shown as the certificates that it holds, in its own order.
class ChainTranscript : public CspScenario {
protected:
    ChainTranscript() : pair(token.withKeyPair(usageSigning, algorithmRsa2048))
    {
        openContainerOf(pair);
        recorder.call(publicKeyOf(pair), "public key 1");
        recorder.call(counting(256), "another public key");
    }
    Bytes make(const std::string& subject, const std::string& issuer)
    {
        const Bytes der = maker.make(subject, issuer);
        names.emplace_back(der, subject + " by " + issuer);
        recorder.call(der, "(" + names.back().second + ")");
        return der;
    }
    void ask(const Place& place)
    {
        recorder.record("CPGetProvParam", "context1, PP_CERTCHAIN, " + words(place), [&] {
            HandedBuffer buffer(place);
            const auto called = callWithLastError(
                [&] { return CPGetProvParam(csp.context, PP_CERTCHAIN, buffer.data(), buffer.length(), CRYPT_FIRST); });
            const bool written = place.buffer && called.result && called.lastErrorKept();
            length = *buffer.length();
            return CspCalls::answerText(called) + (written ? ", " + content(buffer.written()) : buffer.outcome());
        });
    }
    std::string content(const Bytes& message) const
    {
        std::string all;
        for (const Bytes& der : certificatesOf(message)) {
            const auto found = std::ranges::find(names, der, &std::pair<Bytes, std::string>::first);
            all += (all.empty() ? "" : ", ") + (found == names.end() ? "an unknown certificate" : found->second);
        }
        return all;
    }

    CertificateMaker maker;
    QueltaKeyPair& pair;
    std::vector<std::pair<Bytes, std::string>> names;
    DWORD length = 0;
};

TEST_F(ChainTranscript, HoldsTheIssuersUpToTheRootAndNoStrangers)
{
    const Bytes root = make("Root", "Root"), issuing = make("Issuing", "Root"), leaf = make("Leaf", "Issuing");
    token.withCertificate(make("Stranger", "Root"));
    token.withCertificate(Bytes(40, 0x30));
    token.withCertificate(issuing);
    token.withCertificateOf(pair, leaf);
    token.withCertificate(root);
    ask(room(4000));
}

TEST_F(ChainTranscript, SizeIsToldFirst)
{
    token.withCertificateOf(pair, make("Leaf", "Leaf"));
    const Recorder::Pause pause(recorder);
    ask(query());
    const DWORD size = length;
    ask(room(size - 1));
    EXPECT_EQ(length, size);
    ask(room(size));
    EXPECT_EQ(length, size);
}

TEST_F(ChainTranscript, EndsAtAnUnknownIssuerAndInACircle)
{
    token.withCertificateOf(pair, make("Leaf", "Issuing"));
    ask(room(4000));
    token.withCertificate(make("Issuing", "Elsewhere"));
    ask(room(4000));
    token.withCertificate(make("Elsewhere", "Issuing"));
    ask(room(4000));
}

TEST_F(ChainTranscript, OfTwoIssuersWithOneNameTheFirstIsTaken)
{
    token.withCertificateOf(pair, make("Leaf", "Issuing"));
    token.withCertificate(make("Issuing", "First root"));
    token.withCertificate(make("First root", "First root"));
    token.withCertificate(make("Issuing", "Second root"));
    token.withCertificate(make("Second root", "Second root"));
    ask(room(4000));
}

TEST_F(ChainTranscript, OfTwoCertificatesOfTheKeyTheFirstLeads)
{
    token.withCertificateOf(pair, make("First", "Root"));
    token.withCertificateOf(pair, make("Second", "Root"));
    token.withCertificate(make("Root", "Root"));
    ask(room(4000));
}

TEST_F(ChainTranscript, TwoKeyPairsWithOnePublicKeyHaveBothTheChain)
{
    const Bytes leaf = make("Leaf", "Leaf");
    token.withCertificateOf(pair, leaf);
    auto& other = token.withKeyPair(usageSigning, algorithmRsa2048);
    setPublicKey(other, publicKeyOf(pair));
    ask(room(4000));
    openContainerOf(other);
    ask(room(4000));
}

TEST_F(ChainTranscript, CertificateBelongsByItsPublicKeyAlone)
{
    const Bytes leaf = make("Leaf", "Leaf");
    token.withCertificateOf(pair, leaf);
    token.detailsGive(leaf, counting(256));
    ask(query(77));
    token.detailsGive(leaf, {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    token.willAnswer(Call::getCertificateDetails, 3);
    ask(query(77));
    recorder.note("no container is no name for all");
    open();
    ask(query(77));
}

TEST_F(ChainTranscript, LeafThatCanNotBeReadIsABadKey)
{
    auto& record = token.withCertificateOf(pair, Bytes(40, 0x30));
    ask(room(100));
    token.detailsGive({}, {publicKeyOf(pair).begin(), publicKeyOf(pair).end()});
    record.certificateLength = INT_MAX;
    ask(room(100));
}

} // namespace quelta::test
