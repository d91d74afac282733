#include "common/der_reader.h"
#include "common/object_ids.h"
#include "support/scratch_folder.h"
#include "test_signatures.h"
#include "tools/cms/certificates.h"
#include "tools/cms/chain_check.h"
#include "tools/cms/signed_data.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace quelta::tools {
namespace {

constexpr std::string_view signedContent = "signed content\n";

class SignatureCheck : public testing::Test {
protected:
    CheckedSignature check(const Bytes& signature, std::string_view content = signedContent)
    {
        InputFile file(folder.write("content", toBytes(content)));
        return checkSignature(signature, file);
    }

    ScratchFolder folder;
};

TEST_F(SignatureCheck, SignaturesOfAnotherImplementationHoldForTheirContentAndRootAlone)
{
    const struct {
        std::string signature;
        const char* signer;
        const char* hash;
        bool timed;
        std::string stranger;
    } rows[] = {
        {"rsa_with_attributes", "CN=Signer A", "sha256", true, "ecdsa_p384"},
        {"rsa_without_attributes", "CN=Signer A", "sha1", false, "ecdsa_p384"},
        {"ecdsa_p384", "CN=Signer B", "sha512", true, "rsa_with_attributes"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.hash);
        Bytes signature = signatureIn(row.signature);
        const CheckedSignature checked = check(signature);
        ASSERT_EQ(checked.signers.size(), 1u);
        const Signer& signer = checked.signers[0];
        EXPECT_EQ(subjectOf(*signer.certificate), row.signer);
        EXPECT_EQ(signer.hashName, row.hash);
        EXPECT_EQ(signer.time.has_value(), row.timed);

        Roots roots;
        roots.push_back(certificateIn(row.stranger));
        EXPECT_THROW(checkChain(signer, checked, roots, timeNow()), Refusal);
        roots.push_back(certificateIn(row.signature));
        EXPECT_EQ(checkChain(signer, checked, roots, timeNow()).name, row.signer);

        for (const std::string_view content : {"signed content", "signed content\n\n", "Signed content\n", ""})
            EXPECT_THROW(check(signature, content), Refusal) << content;
        signature.back() ^= 1;
        EXPECT_THROW(check(signature), Refusal) << "another signature value";
    }
}

// The digest in the attributes is what ties them to the content; the signature is what ties them to the signer.
TEST_F(SignatureCheck, AttributesRewrittenForAnotherContentAreRefused)
{
    Bytes changed = signatureIn("rsa_with_attributes");
    const Bytes digest = digestOf(knownDigests[0], toBytes(signedContent));
    const auto at = std::ranges::search(changed, digest).begin();
    ASSERT_NE(at, changed.end());
    std::ranges::copy(digestOf(knownDigests[0], toBytes("forged")), at);
    EXPECT_THROW(check(changed, "forged"), Refusal);
}

// A time stamp is not signed, so anybody can add one.
TEST_F(SignatureCheck, ATimeStampIsSeenAndProvesNothing)
{
    EXPECT_FALSE(check(signatureIn("rsa_with_attributes")).signers[0].hasTimeStamp);
    SignedData message = parseSignedData(signatureIn("rsa_with_attributes")).value();
    const auto signer = der::Reader(message.signerInfos[0]).next();
    const Bytes stamp = der::sequence({der::oid(oid::timeStampToken), der::setOf({der::null()})});
    message.signerInfos[0] = der::sequence({signer->content, der::element(der::explicitTag(1), stamp)});
    EXPECT_TRUE(check(message.encoded()).signers[0].hasTimeStamp);
}

} // namespace
} // namespace quelta::tools
