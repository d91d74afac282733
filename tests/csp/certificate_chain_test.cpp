#include "csp/csp_test.h"

#include <climits>
#include <memory>

namespace quelta::test {

namespace {

using ::testing::Contains;
using ::testing::UnorderedElementsAre;

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

// The message holds a SET, whose encoder may sort: the order of its certificates is not looked at.
class CertificateChainOfToken : public CspTest {
protected:
    CertificateChainOfToken()
    {
        token.withKeyPair(usageSigning, algorithmRsa2048);
        pair = &token.withKeyPair(usageSigning, algorithmRsa2048);
        prov = acquire(keyName(*pair));
    }
    Bytes publicKey() const { return {publicKeyOf(*pair).begin(), publicKeyOf(*pair).end()}; }
    BOOL ask(BYTE* data, DWORD* length) const { return CPGetProvParam(prov, PP_CERTCHAIN, data, length, 0); }
    HandOut asking() const
    {
        return [this](BYTE* data, DWORD* length) { return ask(data, length); };
    }
    Bytes message() const
    {
        const DWORD size = query(0, asking()).length;
        const Handed handed = handTo(room(size), asking());
        EXPECT_EQ(handed.answer, succeeded());
        return handed.buffer;
    }
    std::vector<Bytes> chain() const { return certificatesOf(message()); }

    CertificateMaker maker;
    QueltaKeyPair* pair = nullptr;
    HCRYPTPROV prov = 0;
};

TEST_F(CertificateChainOfToken, HoldsTheIssuersAndNoStrangers)
{
    const Bytes root = maker.make("Root", "Root");
    const Bytes issuing = maker.make("Issuing", "Root");
    const Bytes leaf = maker.make("Leaf", "Issuing");
    token.withCertificate(maker.make("Stranger", "Root"));
    token.withCertificate(Bytes(100, 0x30));
    token.withCertificate(Bytes(root.begin(), root.end() - 40));
    token.withCertificate(issuing);
    token.withCertificateOf(*pair, leaf);
    token.withCertificate(root);
    EXPECT_THAT(chain(), UnorderedElementsAre(root, issuing, leaf));
    expectHandsOut(moreDataButTrue, message(), asking());
}

TEST_F(CertificateChainOfToken, EndsAtAnUnknownIssuerAndInARing)
{
    const Bytes leaf = maker.make("Leaf", "Issuing");
    token.withCertificateOf(*pair, leaf);
    EXPECT_THAT(chain(), ElementsAre(leaf));
    const Bytes issuing = maker.make("Issuing", "Elsewhere");
    token.withCertificate(issuing);
    EXPECT_THAT(chain(), UnorderedElementsAre(leaf, issuing));
    token.withCertificate(maker.make("Elsewhere", "Issuing"));
    EXPECT_THAT(chain(), Contains(leaf));
}

TEST_F(CertificateChainOfToken, SelfSignedLeafLooksForAnotherOfItsNameOnly)
{
    const Bytes leaf = maker.make("Leaf", "Leaf");
    token.withCertificateOf(*pair, leaf);
    EXPECT_THAT(chain(), ElementsAre(leaf));
    token.withCertificate(maker.make("Leaf", "Leaf"));
    EXPECT_THAT(chain(), Contains(leaf));
}

TEST_F(CertificateChainOfToken, FirstOfTwoCertificatesLeads)
{
    const Bytes first = maker.make("First", "Root");
    const Bytes root = maker.make("Root", "Root");
    token.withCertificateOf(*pair, first);
    token.withCertificateOf(*pair, maker.make("Second", "Root"));
    token.withCertificate(root);
    EXPECT_THAT(chain(), UnorderedElementsAre(root, first));
}

TEST_F(CertificateChainOfToken, BelongsByPublicKeyAlone)
{
    const Bytes leaf = maker.make("Leaf", "Leaf");
    auto& record = token.withCertificateOf(*pair, leaf);
    const Handed none = {failedWith(NTE_NO_KEY), 0, {}};
    Bytes other = publicKey();
    other.back() ^= 1;
    token.detailsGive(leaf, other);
    EXPECT_EQ(query(77, asking()), none);
    token.detailsGive(leaf, concat({publicKey(), {0}}));
    EXPECT_EQ(query(77, asking()), none);
    token.detailsGive(leaf, publicKey());
    token.willAnswer(Call::getCertificateDetails, 3);
    EXPECT_EQ(query(77, asking()), none);
    EXPECT_THAT(chain(), ElementsAre(leaf));

    token.detailsGive({}, publicKey());
    for (const std::int32_t hostile : {-1, 3073, INT_MIN, INT_MAX, 0}) {
        record.certificateLength = hostile;
        EXPECT_EQ(query(77, asking()), (Handed{failedWith(NTE_BAD_KEY), 77, {}})) << hostile;
    }
    prov = acquire();
    EXPECT_EQ(query(77, asking()), none) << "no container is no name for all";
}

} // namespace quelta::test
