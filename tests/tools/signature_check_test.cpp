#include "signature_check.h"

#include "certificates.h"
#include "digest.h"
#include "failure.h"
#include "scratch_folder.h"
#include "test_certificate.h"
#include "test_signatures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

namespace quelta {
namespace {

constexpr std::string_view signedContent = "signed content\n";

Bytes bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

Bytes decoded(std::string_view pem)
{
    return withoutPem(bytesOf(pem));
}

class SignatureCheck : public testing::Test {
protected:
    CheckedSignature check(const Bytes& signature, std::string_view content = signedContent)
    {
        InputFile file(folder.write("content", bytesOf(content)));
        return checkSignature(signature, file);
    }

    ScratchFolder folder;
};

TEST_F(SignatureCheck, SignaturesOfAnotherImplementationHold)
{
    const struct {
        std::string_view signature;
        const char* signer;
        const char* hash;
        bool timed;
    } rows[] = {
        {rsaWithAttributes, "CN=Signer A", "sha256", true},
        {rsaWithoutAttributes, "CN=Signer A", "sha1", false},
        {ecdsaP384, "CN=Signer B", "sha512", true},
    };
    for (const auto& row : rows) {
        const CheckedSignature checked = check(decoded(row.signature));
        ASSERT_EQ(checked.signers.size(), 1u);
        EXPECT_EQ(subjectOf(*checked.signers[0].certificate), row.signer);
        EXPECT_EQ(checked.signers[0].hashName, row.hash);
        EXPECT_EQ(checked.signers[0].time.has_value(), row.timed);
    }
}

TEST_F(SignatureCheck, AnotherContentIsRefused)
{
    for (const std::string_view signature : {rsaWithAttributes, rsaWithoutAttributes, ecdsaP384})
        for (const std::string_view content : {"signed content", "signed content\n\n", "Signed content\n", ""})
            EXPECT_THROW(check(decoded(signature), content), Refusal) << content;
}

TEST_F(SignatureCheck, AChangedSignatureValueIsRefused)
{
    for (const std::string_view signature : {rsaWithAttributes, rsaWithoutAttributes, ecdsaP384}) {
        Bytes changed = decoded(signature);
        changed.back() ^= 1;
        EXPECT_THROW(check(changed), Refusal);
    }
}

// The digest in the attributes is what ties them to the content; the signature is what ties them to the signer.
TEST_F(SignatureCheck, AttributesRewrittenForAnotherContentAreRefused)
{
    Bytes changed = decoded(rsaWithAttributes);
    const Bytes digest = digestOf(hashOfName("sha256"), bytesOf(signedContent));
    const auto at = std::ranges::search(changed, digest).begin();
    ASSERT_NE(at, changed.end());
    std::ranges::copy(digestOf(hashOfName("sha256"), bytesOf("forged")), at);
    EXPECT_THROW(check(changed, "forged"), Refusal);
}

TEST_F(SignatureCheck, WhatIsNoSignatureSaysSo)
{
    EXPECT_THROW(check({}), Failure);
    EXPECT_THROW(check(bytesOf("text")), Failure);
    EXPECT_THROW(check(testCertificate()), Failure);
}

TEST_F(SignatureCheck, TheChainMustEndInAGivenRoot)
{
    for (const std::string_view signature : {rsaWithAttributes, ecdsaP384}) {
        const CheckedSignature checked = check(decoded(signature));
        const Signer& signer = checked.signers[0];
        std::vector<Certificate> roots;
        roots.push_back(parseCertificate(testCertificate()));
        EXPECT_THROW(checkChain(signer, checked, roots), Refusal);
        roots.push_back(parseCertificate(encodedOf(*signer.certificate)));
        EXPECT_EQ(&checkChain(signer, checked, roots), roots[1].get());
    }
}

} // namespace
} // namespace quelta
