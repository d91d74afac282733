#pragma once

#include "support/call_with_last_error.h"
#include "support/guarded_buffer.h"
#include "support/module_test.h"

#include "csp/entry_points.h"
#include "log/utils.h"
#include "token/key_algorithms.h"
#include "token/key_match.h"
#include "token/record_fields.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

#include <functional>
#include <optional>
#include <source_location>

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr ULONG_PTR untouchedHandle = 0x1234;

using Attempt = std::function<BOOL()>;
void expectAnswer(Called<BOOL> expected, const Attempt& attempt, std::source_location where);
inline void expectSucceeds(const Attempt& attempt, std::source_location where = std::source_location::current())
{
    expectAnswer(succeeded(), attempt, where);
}
inline void expectFails(auto code, const Attempt& attempt, std::source_location where = std::source_location::current())
{
    expectAnswer(failedWith(code), attempt, where);
}

class CspTest : public ModuleTest {
protected:
    ~CspTest() override;

    // What these open lives as long as the test, and leaves nothing in the log or among the token's calls.
    HCRYPTPROV acquire(std::optional<std::string> container = std::nullopt);
    HCRYPTKEY userKey(HCRYPTPROV prov, DWORD keySpec = AT_SIGNATURE);
    HCRYPTHASH newHash(HCRYPTPROV prov, ALG_ID algorithm = CALG_SHA_256);
    // Of the digest 01 02 ... 20.
    HCRYPTHASH finishedHash(HCRYPTPROV prov);

    void ownsKey(HCRYPTKEY key) { keys_.push_back(key); }
    void ownsHash(HCRYPTHASH hash) { hashes_.push_back(hash); }

private:
    std::vector<HCRYPTPROV> contexts_;
    std::vector<HCRYPTKEY> keys_;
    std::vector<HCRYPTHASH> hashes_;
};

} // namespace quelta::test
