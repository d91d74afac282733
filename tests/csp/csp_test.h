#pragma once

#include "support/call_with_last_error.h"
#include "support/guarded_buffer.h"
#include "support/module_test.h"

#include "csp/entry_points.h"
#include "log/utils.h"
#include "token/key_match.h"
#include "token/token_state.h"

#include <gmock/gmock.h>

#include <functional>
#include <optional>

namespace quelta::test {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr ULONG_PTR untouchedHandle = 0x1234;

using HandOut = std::function<BOOL(BYTE* data, DWORD* length)>;
struct Handed {
    Called<BOOL> answer;
    DWORD length;
    Bytes buffer;
    friend bool operator==(const Handed&, const Handed&) = default;
};
// Calls with a buffer that holds `content` and ends at an inaccessible page; the length that is stated is its size.
Handed handTo(const Bytes& content, const HandOut& handOut);
// The same without a buffer.
Handed query(DWORD statedLength, const HandOut& handOut);
inline Bytes room(std::size_t size)
{
    return Bytes(size, GuardedBuffer::untouched);
}

// How an entry point hands out data: what it answers when no buffer is there, and when the buffer is too short.
struct BufferRule {
    Called<BOOL> query;
    Called<BOOL> tooShort;
    bool noRoomIsAQuery = false;
    Called<BOOL> written = succeeded();
};
inline const BufferRule quietLength = {succeeded(), succeeded()};
inline const BufferRule moreDataButTrue = {succeededWith(ERROR_MORE_DATA), succeededWith(ERROR_MORE_DATA)};
inline const BufferRule enumerated = {succeededWith(ERROR_MORE_DATA), failedWith(ERROR_MORE_DATA)};
inline const BufferRule shortIsRefused = {succeeded(), failedWith(ERROR_MORE_DATA)};
inline const BufferRule keyParameter = {succeeded(), failedWith(ERROR_MORE_DATA), true};
void expectHandsOut(const BufferRule& rule, const Bytes& value, const HandOut& handOut,
                    std::source_location where = std::source_location::current());

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
    HCRYPTKEY importedKey(HCRYPTPROV prov, const Bytes& blob, HCRYPTKEY importKey = 0);
    // A symmetric key that the token's key-exchange key decrypts to these bytes.
    HCRYPTKEY sessionKey(HCRYPTPROV prov, ALG_ID algorithm, const Bytes& value);
    HCRYPTHASH newHash(HCRYPTPROV prov, ALG_ID algorithm = CALG_SHA_256);
    // Of the digest 01 02 ... 20.
    HCRYPTHASH finishedHash(HCRYPTPROV prov);

    void ownsKey(HCRYPTKEY key) { keys_.push_back(key); }
    void ownsHash(HCRYPTHASH hash) { hashes_.push_back(hash); }

    // Among the new lines of the log is this one.
    void expectLine(const LogLine& line, std::source_location where = std::source_location::current());

private:
    std::vector<HCRYPTPROV> contexts_;
    std::vector<HCRYPTKEY> keys_;
    std::vector<HCRYPTHASH> hashes_;
};

} // namespace quelta::test
