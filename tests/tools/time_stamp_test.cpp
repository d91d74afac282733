#include "base/der.h"
#include "base/object_ids.h"
#include "cms_signed_data.h"
#include "failure.h"
#include "scratch_folder.h"
#include "test_signatures.h"
#include "text.h"
#include "verify_command.h"

#include <gmock/gmock.h>

namespace quelta::tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string folderOfStamps = "time_stamps/";
constexpr auto proven = "judged  for 2020-07-01 10:00:00 UTC: signed before, as a time stamp of CN=Authority of 2020 proves";

// A signature of June 2020 whose certificate ended in June 2021, judged today.
class TimeStamp : public testing::Test {
protected:
    // What verify says of it with these tokens beside it; of a refusal its reason.
    std::string verdict(const std::vector<Bytes>& tokens, const std::vector<std::string>& owners = {"signer", "authority"},
                        const std::string& at = "")
    {
        VerifyOptions options{nameOf(folder.write("signature", stamped(tokens))), content, "", {}, at};
        for (const std::string& owner : owners)
            options.roots.push_back(QUELTA_SIGNATURES_DIR "/" + folderOfStamps + owner + "_root.pem");
        try {
            const Answer answer = verify(options);
            std::string said = answer.json["signers"][0]["judgedBy"].dump() + '\n';
            for (const std::string& line : answer.lines) said += line + '\n';
            return said;
        } catch (const Failure& refusal) {
            return std::string("REFUSED: ") + refusal.what();
        }
    }

    static Bytes token(const std::string& name) { return signatureIn(folderOfStamps + name); }

    ScratchFolder folder;
    const std::string content = nameOf(folder.write("content", toBytes("signed content\n")));

private:
    static Bytes stamped(const std::vector<Bytes>& tokens)
    {
        SignedData message = parseSignedData(token("signature")).value();
        const auto signer = der::Reader(message.signerInfos[0]).next();
        const Bytes stamps = der::sequence({der::oid(oid::timeStampToken), der::setOf(tokens)});
        if (!tokens.empty()) message.signerInfos[0] = der::sequence({signer->content, der::element(der::explicitTag(1), stamps)});
        return message.encoded();
    }
};

TEST_F(TimeStamp, ProvesWhenTheSignatureWasThereIfItHoldsAndItsAuthorityIsTrusted)
{
    EXPECT_THAT(verdict({token("stamp")}), AllOf(StartsWith(R"("time stamp")"), HasSubstr(proven)));
    EXPECT_THAT(verdict({token("late"), token("of_another"), {der::tagNull, 0}, token("stamp")}), HasSubstr(proven));

    Bytes damaged = token("stamp");
    const auto time = std::ranges::search(damaged, toBytes("20200701")).begin();
    ASSERT_NE(time, damaged.end());
    time[5] = '8';
    const struct {
        std::vector<Bytes> tokens;
        const char* reason;
    } rows[] = {
        {{}, "(judged for now, "},
        {{token("late")}, "(judged for 2021-07-01 10:00:00 UTC: signed before"},
        {{token("of_another")}, "proves nothing: it is of another signature"},
        {{token("not_critical")}, "is not for time stamps"},
        {{token("not_alone")}, "is not for time stamps"},
        {{damaged}, "its own signature does not hold"},
        {{token("signature")}, "none that this tool can read"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(verdict(row.tokens), AllOf(HasSubstr("REFUSED: the signer's chain"), HasSubstr(row.reason)));
    for (const auto& roots : {std::vector<std::string>{"signer"}, std::vector<std::string>{}})
        EXPECT_THAT(verdict({token("stamp")}, roots),
                    AllOf(HasSubstr("REFUSED"), HasSubstr("proves nothing: its authority's chain")));
}

TEST_F(TimeStamp, GivesWayToATimeThatTheUserNames)
{
    EXPECT_THAT(verdict({token("stamp")}, {"signer"}, "2022-01-01"), HasSubstr("REFUSED"));
    EXPECT_THAT(verdict({}, {"signer"}, "2020-08-01"), HasSubstr("judged  for 2020-08-01 00:00:00 UTC, as --at says"));
}

// Bytes of a token that no signature covers may be anything; those that it covers prove nothing once they are changed.
TEST_F(TimeStamp, NoChangedByteOfATokenProvesAnotherTime)
{
    const Bytes good = token("stamp");
    int refused = 0;
    for (std::size_t i = 0; i < good.size(); i += 3) {
        Bytes changed = good;
        changed[i] ^= 1;
        const std::string said = verdict({changed});
        refused += said.starts_with("REFUSED");
        EXPECT_TRUE(said.starts_with("REFUSED") || said.find(proven) != std::string::npos) << i << ": " << said;
    }
    EXPECT_GT(refused, 240);
}

} // namespace
} // namespace quelta::tools
