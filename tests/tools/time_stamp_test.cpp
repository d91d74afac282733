#include "common/der_reader.h"
#include "common/object_ids.h"
#include "support/scratch_folder.h"
#include "test_signatures.h"
#include "tools/cms/signed_data.h"
#include "tools/commands/verify.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <gmock/gmock.h>

namespace quelta::tools {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr auto folderOfStamps = "time_stamps/";
constexpr auto proven = "judged  for 2020-07-01 10:00:00 UTC: signed before, as a time stamp of CN=Authority of 2020 proves";

// A signature of June 2020 whose certificate ended in June 2021, judged today.
class TimeStamp : public testing::Test {
protected:
    // What verify says of it with these tokens beside it; of a refusal its reason.
    std::string verdict(const std::vector<Bytes>& tokens, const std::vector<std::string>& owners = {"signer", "authority"},
                        const std::string& at = "")
    {
        VerifyOptions options{nameOf(folder.write("signature", stamped(tokens))), content, "", {}, at};
        for (const auto& owner : owners)
            options.roots.push_back(std::string(QUELTA_SIGNATURES_DIR "/") + folderOfStamps + owner + "_root.pem");
        try {
            const Answer answer = verify(options);
            std::string said = "good by " + answer.json["signers"][0]["judgedBy"].dump();
            for (const std::string& line : answer.lines) said += '\n' + line;
            return said;
        } catch (const Failure& refusal) {
            return std::string("REFUSED: ") + refusal.what();
        }
    }
    static Bytes token(const std::string& name) { return signatureIn(folderOfStamps + name); }

private:
    static Bytes stamped(const std::vector<Bytes>& tokens)
    {
        SignedData message = parseSignedData(token("signature")).value();
        const auto signer = der::Reader(message.signerInfos[0]).next();
        const Bytes stamps = der::sequence({der::oid(oid::timeStampToken), der::setOf(tokens)});
        message.signerInfos[0] = der::sequence({signer->content, der::element(der::explicitTag(1), stamps)});
        return message.encoded();
    }

    ScratchFolder folder;
    const std::string content = nameOf(folder.write("content", toBytes("signed content\n")));
};

TEST_F(TimeStamp, SaysForWhenTheSignerIsJudgedIfItHoldsAndItsAuthorityIsTrusted)
{
    const std::vector<std::string> both{"signer", "authority"}, signer{"signer"};
    const Bytes stamp = token("stamp");
    constexpr auto good = "good by \"time stamp\"";
    constexpr auto expired = "REFUSED: the signer's chain does not hold: a certificate had expired";
    const struct {
        std::vector<Bytes> tokens;
        std::vector<std::string> roots;
        const char* verdict;
        const char* reason;
        const char* at = "";
    } rows[] = {
        {{stamp}, both, good, proven},
        {{token("late"), token("of_another"), {der::tagNull, 0}, stamp}, both, good, proven},
        {{}, both, expired, "(judged for now, "},
        {{token("late")}, both, expired, "(judged for 2021-07-01 10:00:00 UTC: signed before"},
        {{token("of_another")}, both, expired, "proves nothing: it is of another signature"},
        {{token("not_critical")}, both, expired, "is not for time stamps"},
        {{token("not_alone")}, both, expired, "is not for time stamps"},
        {{token("signature")}, both, expired, "none that this tool can read"},
        {{stamp}, signer, expired, "proves nothing: its authority's chain"},
        {{stamp}, {}, expired, "proves nothing: its authority's chain"},
        {{stamp}, both, expired, "(judged for 2022-01-01 00:00:00 UTC, as --at says)", "2022-01-01"},
        {{}, signer, "good by \"--at\"", "judged  for 2020-08-01 00:00:00 UTC, as --at says", "2020-08-01"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(verdict(row.tokens, row.roots, row.at), AllOf(StartsWith(row.verdict), HasSubstr(row.reason)));
}

// Bytes that no signature covers may be anything. Those that one covers prove nothing once they are changed.
TEST_F(TimeStamp, NoChangedByteProvesAnotherTime)
{
    int refused = 0;
    for (std::size_t i = 0; i < token("stamp").size(); i += 3) {
        Bytes changed = token("stamp");
        changed[i] ^= 1;
        const std::string said = verdict({changed});
        refused += said.starts_with("REFUSED");
        EXPECT_TRUE(said.starts_with("REFUSED") || said.find(proven) != std::string::npos) << i << ": " << said;
    }
    EXPECT_GT(refused, 240);
}

} // namespace
} // namespace quelta::tools
