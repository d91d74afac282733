#include "csp/csp_test.h"

namespace quelta::test {

using ChangingLength = CspTest;

TEST_F(ChangingLength, SignatureRoomIsTheOneThatWasChecked)
{
    token.withKeyPair(usageSigning, algorithmRsa2048);
    const HCRYPTPROV prov = acquire();
    const HCRYPTHASH hash = finishedHash(prov);
    cachePin();
    GuardedBuffer signature(256);
    DWORD length = signature.length();
    token.during(Call::getKeyPairList, [&] { length = 4096; });
    expectSucceeds([&] { return CPSignHash(prov, hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length); });
    EXPECT_THAT(token.takeDeeds(), ElementsAre(::testing::HasSubstr("room 256")));
    EXPECT_EQ(length, 256U);
}

} // namespace quelta::test
