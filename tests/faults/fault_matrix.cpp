#include "faults/fault_matrix.h"

#include "csp/csp_calls.h"
#include "ksp/ksp_calls.h"
#include "support/heap.h"
#include "support/machine_registry.h"
#include "support/transcript.h"
#include "support/words.h"

#include <gmock/gmock.h>

#include <climits>
#include <iostream>
#include <stdexcept>

namespace quelta::test {

namespace {

constexpr std::string_view trouble = "the library is in trouble";

// Each record's lengths that the token reports.
void setLengths(auto&& records, int length)
{
    for (auto& record : records) {
        record.keyReferenceLength = length;
        if constexpr (requires { record.publicKeyLength; }) record.publicKeyLength = length;
        if constexpr (requires { record.certificateLength; }) record.certificateLength = length;
        if constexpr (requires { record.keyValueLength; }) record.keyValueLength = length;
    }
}

template <class Record>
std::function<void(Record&)> spoiled(int length)
{
    return [=](Record& record) { setLengths(std::span(&record, 1), length); };
}

void forgetSecrets()
{
    tokenState().pinCache.clear();
    tokenState().sharedIv.clear();
}

std::string textOf(const std::vector<LogLine>& lines, const std::string& said, const std::string& number)
{
    std::string text;
    for (const LogLine& line : lines) {
        const std::string_view whole = line.text;
        const bool isException = !said.empty() && whole.ends_with(" failed: " + said);
        const std::size_t digits = whole.size() - 1 - whole.find_last_of(" =");
        const bool isNumbered = digits > 0 && whole.substr(whole.size() - digits) == number;
        text += isException ? "!"
                            : " \"" + line.text.substr(0, whole.size() - (isNumbered ? digits : 0)) + (isNumbered ? "N\"" : "\"");
    }
    return text;
}

// No copy, which would keep the secrets in them.
std::size_t fingerprint(const std::vector<ByteView>& parts)
{
    std::size_t sum = 0;
    for (const ByteView part : parts)
        sum = sum * 31 + std::hash<std::string_view>()({reinterpret_cast<const char*>(part.data()), part.size()});
    return sum;
}

} // namespace

FaultMatrix::FaultMatrix()
{
    // A token that refuses and gives something all the same.
    for (Given* given : {&token.signature, &token.digest, &token.plain, &token.cipher, &token.symmetricPlain, &token.unwrapped})
        given->evenIfRefused = true;
    token.plain.bytes = token.unwrapped.bytes = token.symmetricPlain.bytes = secret;
    token.openSingleSignOn();
    heap();
}

void FaultMatrix::TearDown()
{
    if (!quiet_.empty()) lines_.push_back("without the token:" + quiet_);
    if (!lines_.empty()) expectTranscript(lines_);
}

const Function& FaultMatrix::functionNamed(std::string_view name)
{
    return *std::ranges::find(name.starts_with("KSP") ? kspSlots() : entryPoints(), name.substr(0, name.find(' ')),
                              &Function::name);
}

FaultMatrix::Outcome FaultMatrix::call(const Row& row)
{
    const Function& function = functionNamed(row.name);
    Function::Values values = row.values;
    std::ranges::replace(values, whatIsMade, made);
    const auto [result, lastError] = callWithLastError([&] { return function(values); });
    const bool isStatus = function.name.starts_with("KSP"), succeeded = isStatus ? result == 0 : result != FALSE;
    const DWORD code = isStatus ? static_cast<DWORD>(result) : lastError;
    return {succeeded, succeeded && code == ERROR_SUCCESS ? sentinelError : code};
}

void FaultMatrix::undo(const Row& row)
{
    const Function& function = functionNamed(row.name);
    if (function.arguments.contains('H')) freeMade(functionNamed(handleMadeBy(function.name).freedBy), row.values[0], out);
    row.undo();
    forgetSecrets();
}

void FaultMatrix::expect(const Row& row)
{
    const ::testing::ScopedTrace trace(__FILE__, __LINE__, row.name);
    names.insert(functionNamed(row.name).name);
    setLogLevel(2);
    prepared_ = token;
    cachePin();
    row.prepare();
    token.takeCalls();
    call(row);
    std::vector<std::string> calls;
    for (const auto& text : token.takeCalls()) {
        const std::string name = text.substr(0, text.find('('));
        if (std::ranges::find(calls, name) == calls.end()) calls.push_back(name);
    }
    undo(row);
    token.takeCalls();
    // With what it keeps for itself.
    prepared_ = token;
    const Run well = run(row, {"nothing"});
    ASSERT_TRUE(well.outcome.succeeded);
    if (calls.empty()) quiet_ += (quiet_.empty() ? " " : ", ") + row.name;
    for (const auto& call : calls) {
        lines_.push_back(row.name + ", " + call);
        std::string everyLine;
        for (const auto& [kind, faults] : faultsOf(callNamed(call))) {
            Answers answers;
            for (const Fault& fault : faults) {
                const auto [outcome, logged, refused] = run(row, fault);
                if (!outcome.succeeded && everyLine.empty()) {
                    setLogLevel(3);
                    everyLine = "  all lines, " + kind + fault.label + ":" + withShortHex(run(row, fault).logged);
                    setLogLevel(2);
                }
                const std::string name = outcome.code == sentinelError ? "" : errorName(outcome.code);
                EXPECT_TRUE(name.empty() || name.front() > '9') << name << " is no error with a name";
                const char* const result = outcome.succeeded ? "ok" : name.empty() ? "FALSE" : "";
                answers.emplace_back(fault.label, result + name + logged);
            }
            for (const auto& line : answerLines(answers)) lines_.push_back("  " + kind + line);
        }
        if (!everyLine.empty()) lines_.push_back(everyLine);
    }
    refuseMemory(row, !well.logged.empty());
}

FaultMatrix::Faults FaultMatrix::faultsOf(Call call)
{
    Faults faults;
    constexpr Call withoutResult[] = {Call::getConnectedDeviceList, Call::getTokenInfo, Call::getKeyPairList,
                                      Call::getCertificateList, Call::getAesKeyList};
    if (std::ranges::find(withoutResult, call) == std::end(withoutResult)) {
        auto& results = faults.emplace_back().second;
        for (const auto& [result, times] :
             {std::pair(1, 1), {48, 1}, {-1, 1}, {resultSignOnExpired, 1}, {resultSignOnExpired, 2}}) {
            const std::string number = std::to_string(result);
            const Step answer = [=, this, result = result, times = times] {
                for (int i = 0; i < times; ++i) token.willAnswer(call, result);
            };
            results.push_back({number + (times == 1 ? "" : " twice"), answer, "", number});
        }
    }
    if (const auto lengths = lengthsOf(call)) {
        auto& lies = faults.emplace_back("length ", std::vector<Fault>()).second;
        // One more than each field and each room holds, among others.
        for (const int lie : {-1, INT_MIN, 0, 33, 129, 257, 1025, 3073, INT_MAX}) {
            const std::string label = lie == INT_MIN ? "INT_MIN" : lie == INT_MAX ? "INT_MAX" : std::to_string(lie);
            lies.push_back({label, [=] { lengths(lie); }, "", std::to_string(lie)});
        }
    }
    const std::pair<Call, Step> nothing[] = {{Call::getConnectedDeviceList, [this] { token.unplug(); }},
                                             {Call::getKeyPairList, [this] { token.keyPairs.clear(); }},
                                             {Call::getCertificateList, [this] { token.certificates.clear(); }},
                                             {Call::getAesKeyList, [this] { token.aesKeys.clear(); }},
                                             {Call::decrypt, [this] { token.plain.nullBuffer = true; }},
                                             {Call::decryptAes, [this] { token.unwrapped.nullBuffer = true; }}};
    auto& others = faults.emplace_back().second;
    for (const auto& [giving, arm] : nothing) {
        if (giving == call) others.push_back({"gives nothing", arm});
    }
    others.push_back({"throws", [=, this] { token.during(call, [] { throw std::runtime_error(std::string(trouble)); }); },
                      std::string(trouble)});
    others.push_back({"throws 5", [=, this] { token.during(call, [] { throw 5; }); }, "unknown exception"});
    return faults;
}

std::function<void(int)> FaultMatrix::lengthsOf(Call call)
{
    const std::pair<Call, Given*> given[] = {
        {Call::signHash, &token.signature}, {Call::finalHash, &token.digest},     {Call::decrypt, &token.plain},
        {Call::encrypt, &token.cipher},     {Call::decryptAes, &token.unwrapped}, {Call::decryptSymetric, &token.symmetricPlain}};
    for (const auto& [giving, place] : given) {
        if (giving == call) return [place = place](int lie) { place->reportedLength = lie; };
    }
    switch (call) {
    case Call::getKeyPairList: return [this](int lie) { setLengths(token.keyPairs, lie); };
    case Call::getCertificateList: return [this](int lie) { setLengths(token.certificates, lie); };
    case Call::getAesKeyList: return [this](int lie) { setLengths(token.aesKeys, lie); };
    case Call::generateKeyPair: return [this](int lie) { token.onGenerate = spoiled<QueltaKeyPair>(lie); };
    case Call::importAesKey: return [this](int lie) { token.onImportAesKey = spoiled<QueltaSymmetricKey>(lie); };
    default: return nullptr;
    }
}

FaultMatrix::Run FaultMatrix::run(const Row& row, const Fault& fault)
{
    const ::testing::ScopedTrace trace(__FILE__, __LINE__, fault.label);
    long long blocks = 0;
    int hashes = 0;
    const auto counted = [&](const auto& step) {
        const long long blocksBefore = heap().live;
        const int hashesBefore = token.openHashes;
        const FreedMemory freed(secret);
        step();
        EXPECT_EQ(freed.withSecret, 0) << "a secret was not wiped";
        token.takeCalls();
        blocks += heap().live - blocksBefore;
        hashes += token.openHashes - hashesBefore;
    };
    Outcome outcome{};
    const auto callAllowing = [&](int allowed) {
        out = untouched;
        length = buffer.length(), largeLength = large.length();
        std::ranges::fill(std::span(buffer.data(), buffer.size()), GuardedBuffer::untouched);
        counted([&] {
            const RefusedAllocation refusal(allowed);
            outcome = call(row);
        });
    };
    token.become(prepared_);
    counted([&] {
        cachePin();
        row.prepare();
    });
    const int changes = token.changes;
    const std::size_t before = fingerprint(records);
    fault.arm();
    log.forget();
    callAllowing(fault.allowed);
    const Run result{outcome, textOf(log.takeLines(), fault.said, fault.number), heap().refused};
    const bool changed = token.changes != changes;
    token.become(prepared_);
    if (token.lastMonitorPollFoundNothing()) token.waitForMonitorPoll();
    if (!outcome.succeeded) {
        EXPECT_FALSE(changed) << "the token was changed, and the caller does not know";
        EXPECT_EQ(out, row.handleAfterFailure);
        EXPECT_EQ(fingerprint(records), before) << "a key was changed";
        EXPECT_TRUE(fault.said.empty() || result.logged.contains('!')) << "no line of the log tells of the exception";
        // An enumeration that has come to its end stays there.
        const bool over = outcome.code == static_cast<DWORD>(NTE_NO_MORE_ITEMS);
        if (!over) callAllowing(Heap::all);
        EXPECT_TRUE(outcome.succeeded || over) << "and again with all well: " << errorName(outcome.code);
    }
    counted([&] { undo(row); });
    const bool atOnce = result.outcome.succeeded;
    EXPECT_TRUE(atOnce ? blocks == row.keptBlocks : blocks <= row.keptBlocks) << blocks << " blocks are left behind";
    // The token has no call to give one back, so that a failure may cost one as well.
    EXPECT_TRUE(atOnce ? hashes == row.keptHashes : hashes <= 2 * row.keptHashes) << hashes << " hashes are left behind";
    return result;
}

void FaultMatrix::refuseMemory(const Row& row, bool logs)
{
    ::testing::internal::CaptureStdout();
    bool refused = true;
    for (int allowed = 0; refused && !HasFailure(); ++allowed) {
        // These refuse their own record without a line.
        const bool opening = row.name == "CPAcquireContext" || row.name == "KSPOpenProvider";
        const bool named = row.outOfMemory != ERROR_NOT_ENOUGH_MEMORY && !(opening && allowed == 0);
        const Run found = run(row, {"block " + std::to_string(allowed), [] {}, named ? "out of memory" : "", "", allowed});
        refused = found.refused;
        const auto& [succeeded, code] = found.outcome;
        EXPECT_TRUE(succeeded || code == row.outOfMemory || code == static_cast<DWORD>(NTE_NO_MEMORY)) << errorName(code);
        // A line of the log that finds no memory is only lost.
        EXPECT_TRUE(succeeded == !refused || (succeeded && logs)) << "block " << allowed;
    }
    // What is said of the lost lines, and of a failure.
    const std::string said = ::testing::internal::GetCapturedStdout();
    if (HasFailure()) std::cout << said;
}

} // namespace quelta::test
