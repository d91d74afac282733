// Every call of the two interfaces, with everything that can go wrong. A row is a call that succeeds. It is repeated, each time
// with one fault: a call of the device library is refused, reports an impossible length, returns nothing, or throws; or the heap
// refuses a block. A fault must not leak, return half a value, write past a buffer, or change the token while the caller is told
// of a failure. Afterwards the same call must succeed. The transcript has the outcome of each fault and the error lines of the
// log. There "!" stands for a line about an exception, and "N" for the number that the fault reported.
#include "common/text.h"
#include "csp/csp_scenario.h"
#include "csp/key_context.h"
#include "csp/output.h"
#include "ksp/key.h"
#include "ksp/ksp_scenario.h"
#include "support/heap.h"
#include "support/machine_registry.h"
#include "support/transcript.h"
#include "support/words.h"

#include <climits>
#include <stdexcept>

namespace quelta::test {

namespace {

constexpr std::string_view trouble = "the library is in trouble";

// Sets the lengths that the token reports in each record.
void setLengths(auto&& records, int length)
{
    for (auto& record : records) {
        record.keyReferenceLength = length;
        if constexpr (requires { record.publicKeyLength; }) record.publicKeyLength = length;
        if constexpr (requires { record.certificateLength; }) record.certificateLength = length;
        if constexpr (requires { record.keyValueLength; }) record.keyValueLength = length;
    }
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

using Answers = std::vector<std::pair<std::string, std::string>>;
// Returns lines such as "1, 48 -> ok" and "49 -> NTE_FAIL".
std::vector<std::string> answerLines(const Answers& answers)
{
    std::vector<std::string> lines;
    std::string text;
    for (std::size_t i = 0; i < answers.size(); ++i) {
        text += answers[i].first;
        if (i + 1 < answers.size() && answers[i].second == answers[i + 1].second) {
            text += ", ";
        } else {
            lines.push_back(std::exchange(text, "") + " -> " + answers[i].second);
        }
    }
    return lines;
}

// Makes no copy of the parts, which would keep their secrets.
std::size_t fingerprint(const std::vector<ByteView>& parts)
{
    std::size_t sum = 0;
    for (const ByteView part : parts)
        sum = sum * 31 + std::hash<std::string_view>()({reinterpret_cast<const char*>(part.data()), part.size()});
    return sum;
}

} // namespace

// Everything is open, and the token holds one object of each kind.
class FaultsTranscript : public ModuleTest {
protected:
    using Step = std::function<void()>;
    static constexpr ULONG_PTR untouched = 0x1234;
    // Stands for `made` among the values of a row.
    static constexpr ULONG_PTR whatIsMade = 0x5678;

    struct Row {
        // The function's name, and after a blank what distinguishes the row.
        std::string name;
        Function::Values values;
        Step prepare = [] {};
        // Runs after a success. A new handle is freed without it.
        Step undo = [] {};
        // How many blocks of the heap and hashes on the token a successful call leaves behind by its contract.
        int keptBlocks = 0;
        int keptHashes = 0;
        ULONG_PTR handleAfterFailure = untouched;
        DWORD outOfMemory = static_cast<DWORD>(NTE_NO_MEMORY);
    };

    FaultsTranscript()
    {
        constexpr std::string_view label = "a label that needs memory of its own";
        auto& pair = token.withKeyPair(usageBoth, algorithmRsa2048);
        setText(pair.label, label);
        token.withCertificateOf(pair, unsignedCertificate("leaf", "root"));
        token.withCertificate(unsignedCertificate("root", "root"));
        std::ranges::copy(secret, token.withAesKey(encryptionAes128).keyValue);
        token.onImportAesKey = [=](QueltaSymmetricKey& stored) { setText(stored.label, label); };
        token.onGenerate = [=](QueltaKeyPair& generated) { setText(generated.label, label); };
        // The token fills its outputs even if it refuses a call.
        for (Given* given :
             {&token.signature, &token.digest, &token.plain, &token.cipher, &token.symmetricPlain, &token.unwrapped})
            given->evenIfRefused = true;
        token.plain.bytes = token.unwrapped.bytes = token.symmetricPlain.bytes = secret;
        token.openSingleSignOn();
        heap();
    }
    void TearDown() override
    {
        if (!lines_.empty()) expectTranscript(lines_);
    }

    // Makes a call that prepares a row.
    static void call(const char* name, const Function::Values& values)
    {
        const LONG result = functionNamed(name)(values);
        require(std::string_view(name).starts_with("KSP") ? result == 0 : result != FALSE, name);
    }
    static void drop(const char* name, const Function::Values& values) { functionNamed(name)(values); }
    static void forgetPin() { tokenState().pinCache.clear(); }
    static void forgetOpening() { tokenState().libraryInitialised = false; }

    // Returns an entry point or a slot. Ignores the text behind a blank.
    static const Function& functionNamed(std::string_view name)
    {
        return *std::ranges::find(name.starts_with("KSP") ? kspSlots() : entryPoints(), name.substr(0, name.find(' ')),
                                  &Function::name);
    }

    void expect(const Row& row)
    {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, row.name);
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
        // The token's state now includes what the call has left on it.
        prepared_ = token;
        const Run well = run(row, {"nothing"});
        ASSERT_TRUE(well.succeeded);
        for (const auto& call : calls) {
            lines_.push_back(row.name + ", " + call);
            for (const auto& [kind, faults] : faultsOf(callNamed(call))) {
                Answers answers;
                for (const Fault& fault : faults) {
                    const Run found = run(row, fault);
                    const std::string name = found.code == sentinelError ? "" : errorName(found.code);
                    const char* const outcome = found.succeeded ? "ok" : name.empty() ? "FALSE" : "";
                    answers.emplace_back(fault.label, outcome + name + found.logged);
                }
                for (const auto& line : answerLines(answers)) lines_.push_back("  " + kind + line);
            }
        }
        refuseMemory(row, !well.logged.empty());
    }

    // The records behind key handles. No failure may change them.
    std::vector<ByteView> records;
    const Bytes secret = toBytes("the secret has thirty-two bytes.");
    // The handle that a row's `prepare` makes.
    ULONG_PTR made = 0;
    // Outputs of a call. Each call gets them anew.
    ULONG_PTR out = untouched;
    GuardedBuffer buffer{256}, large{4096};
    DWORD length = 0, largeLength = 0;
    const Bytes bytes = counting(256), pin = bytesOfText("1234");
    const ULONG_PTR input = addressOf(bytes.data()), pinPlace = addressOf(pin.data()), place = addressOf(&out),
                    data = addressOf(buffer.data()), result = addressOf(&length), room = addressOf(large.data()),
                    roomLength = addressOf(&largeLength);

private:
    struct Fault {
        std::string label;
        Step arm = [] {};
        // The text at the end of an error line about the fault.
        std::string said = "";
        // The number that the fault reports.
        std::string number = "";
        // How many blocks the heap still makes.
        int allowed = -1;
    };
    struct Run {
        bool succeeded;
        // The last error of CryptoAPI, the status of key storage.
        DWORD code;
        std::string logged = "";
        bool refused = false;
    };
    // The faults by their kind.
    using Faults = std::vector<std::pair<std::string, std::vector<Fault>>>;

    Run call(const Row& row)
    {
        const Function& function = functionNamed(row.name);
        Function::Values values = row.values;
        std::ranges::replace(values, whatIsMade, made);
        const auto [answer, lastError] = callWithLastError([&] { return function(values); });
        const bool isStatus = function.name.starts_with("KSP"), succeeded = isStatus ? answer == 0 : answer != FALSE;
        const DWORD code = isStatus ? static_cast<DWORD>(answer) : lastError;
        return {succeeded, succeeded && code == ERROR_SUCCESS ? sentinelError : code};
    }

    void undo(const Row& row)
    {
        const Function& function = functionNamed(row.name);
        if (function.arguments.contains('H')) freeMade(functionNamed(handleMadeBy(function.name).freedBy), row.values[0], out);
        row.undo();
        forgetPin();
        tokenState().sharedIv.clear();
    }

    Faults faultsOf(Call call)
    {
        Faults faults;
        constexpr Call withoutResult[] = {Call::getConnectedDeviceList, Call::getTokenInfo, Call::getKeyPairList,
                                          Call::getCertificateList, Call::getAesKeyList};
        if (std::ranges::find(withoutResult, call) == std::end(withoutResult)) {
            auto& results = faults.emplace_back().second;
            for (const auto& [code, times] :
                 {std::pair(1, 1), {48, 1}, {-1, 1}, {resultSignOnExpired, 1}, {resultSignOnExpired, 2}}) {
                const std::string number = std::to_string(code);
                const Step answer = [=, this, code = code, times = times] {
                    for (int i = 0; i < times; ++i) token.willAnswer(call, code);
                };
                results.push_back({number + (times == 1 ? "" : " twice"), answer, "", number});
            }
        }
        if (const auto lengths = lengthsOf(call)) {
            auto& lies = faults.emplace_back("length ", std::vector<Fault>()).second;
            // The lies include one more than each field and each buffer holds.
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

    std::function<void(int)> lengthsOf(Call call)
    {
        const std::pair<Call, Given*> given[] = {
            {Call::signHash, &token.signature},   {Call::finalHash, &token.digest},
            {Call::decrypt, &token.plain},        {Call::encrypt, &token.cipher},
            {Call::decryptAes, &token.unwrapped}, {Call::decryptSymetric, &token.symmetricPlain}};
        for (const auto& [giving, values] : given) {
            if (giving == call) return [values = values](int lie) { values->reportedLength = lie; };
        }
        switch (call) {
        case Call::getKeyPairList: return [this](int lie) { setLengths(token.keyPairs, lie); };
        case Call::getCertificateList: return [this](int lie) { setLengths(token.certificates, lie); };
        case Call::getAesKeyList: return [this](int lie) { setLengths(token.aesKeys, lie); };
        case Call::generateKeyPair:
            return [this](int lie) { token.onGenerate = [=](auto& record) { setLengths(std::span(&record, 1), lie); }; };
        case Call::importAesKey:
            return [this](int lie) { token.onImportAesKey = [=](auto& record) { setLengths(std::span(&record, 1), lie); }; };
        default: return nullptr;
        }
    }

    Run run(const Row& row, const Fault& fault)
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
        Run latest{};
        const auto callAllowing = [&](int allowed) {
            out = untouched;
            length = buffer.length(), largeLength = large.length();
            std::ranges::fill(std::span(buffer.data(), buffer.size()), GuardedBuffer::untouched);
            counted([&] {
                const RefusedAllocation refusal(allowed);
                latest = call(row);
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
        const Run first{latest.succeeded, latest.code, textOf(log.takeLines(), fault.said, fault.number), heap().refused};
        const bool changed = token.changes != changes;
        token.become(prepared_);
        if (token.lastMonitorPollFoundNothing()) token.waitForMonitorPoll();
        if (!first.succeeded) {
            EXPECT_FALSE(changed) << "the token was changed, and the caller does not know";
            EXPECT_EQ(out, row.handleAfterFailure);
            EXPECT_EQ(fingerprint(records), before) << "a key was changed";
            EXPECT_TRUE(fault.said.empty() || first.logged.contains('!')) << "no line of the log tells of the exception";
            // An enumeration that has reached its end stays there.
            const bool over = first.code == static_cast<DWORD>(NTE_NO_MORE_ITEMS);
            if (!over) callAllowing(Heap::all);
            EXPECT_TRUE(latest.succeeded || over) << "and again with all well: " << errorName(latest.code);
        }
        counted([&] { undo(row); });
        EXPECT_TRUE(first.succeeded ? blocks == row.keptBlocks : blocks <= row.keptBlocks) << blocks << " blocks are left behind";
        // The library has no function that releases a hash. So a failure may cost a hash, too.
        EXPECT_TRUE(first.succeeded ? hashes == row.keptHashes : hashes <= 2 * row.keptHashes)
            << hashes << " hashes are left behind";
        return first;
    }

    void refuseMemory(const Row& row, bool logs)
    {
        bool refused = true;
        for (int allowed = 0; refused && !HasFailure(); ++allowed) {
            // These find no memory for their own record, and write no line.
            const bool opening = row.name == "CPAcquireContext" || row.name == "KSPOpenProvider";
            const bool named = row.outOfMemory != ERROR_NOT_ENOUGH_MEMORY && !(opening && allowed == 0);
            const Run found = run(row, {"block " + std::to_string(allowed), [] {}, named ? "out of memory" : "", "", allowed});
            refused = found.refused;
            EXPECT_TRUE(found.succeeded || found.code == row.outOfMemory || found.code == static_cast<DWORD>(NTE_NO_MEMORY))
                << errorName(found.code);
            // If a line of the log finds no memory, only the line is lost.
            EXPECT_TRUE(found.succeeded == !refused || (found.succeeded && logs)) << "block " << allowed;
        }
    }

    FakeToken prepared_;
    std::vector<std::string> lines_;
};

TRANSCRIPT(FaultsTranscript, "the entry points of CryptoAPI")
{
    BYTE table = 0;
    ULONG_PTR prov = 0, key = 0, session = 0, finished = 0;
    const ULONG_PTR callbacks = addressOf(&table);
    const Bytes wrapped = keyBlob(SIMPLEBLOB, CALG_AES_256, Bytes(260));
    call("CPAcquireContext", {addressOf(&prov), addressOf(keyName(token.keyPairs[0]).c_str()), 0, callbacks});
    call("CPGetUserKey", {prov, AT_SIGNATURE, addressOf(&key)});
    call("CPImportKey", {prov, addressOf(wrapped.data()), wrapped.size(), key, 0, addressOf(&session)});
    call("CPCreateHash", {prov, CALG_SHA_256, 0, 0, addressOf(&finished)});
    call("CPSetHashParam", {prov, finished, HP_HASHVAL, input});
    records = {bytesOf(*keyOf(key)), bytesOf(*keyOf(session))};

    const Step newHash = [&] { call("CPCreateHash", {prov, CALG_SHA_256, 0, 0, addressOf(&made)}); };
    const Step newHashToSign = [&] { newHash(), forgetPin(); };
    const Step dropHash = [&] { drop("CPDestroyHash", {prov, made}); }, nothing = [] {};
    const auto expectImport = [&](const std::string& name, BYTE type, ALG_ID algorithm, const Bytes& rest) {
        const Bytes blob = keyBlob(type, algorithm, rest);
        expect({"CPImportKey " + name, {prov, addressOf(blob.data()), blob.size(), key, 0, place}});
    };

    expect({"CPAcquireContext", {place, addressOf("a container with a long name"), 0, callbacks}, forgetOpening});
    expect({"CPGetProvParam PP_KEYSPEC", {prov, PP_KEYSPEC, room, roomLength}});
    expect({"CPGetProvParam PP_CERTCHAIN", {prov, PP_CERTCHAIN, room, roomLength}});
    expect({"CPSetProvParam", {prov, PP_SIGNATURE_PIN, pinPlace}});
    expect({"CPGenKey", {prov, CALG_RSA_SIGN, 0, place}, forgetPin, nothing, 0, 0, 0, ERROR_NOT_ENOUGH_MEMORY});
    expect({"CPGetUserKey", {prov, AT_SIGNATURE, place}});
    expect({"CPGetKeyParam KP_CERTIFICATE", {prov, key, KP_CERTIFICATE, room, roomLength}});
    expect({"CPSetKeyParam KP_IV", {prov, session, KP_IV, input}});
    expectImport("PUBLICKEYBLOB", PUBLICKEYBLOB, CALG_RSA_KEYX, concat({littleEndian({0x31415352, 1024}), Bytes(132, 1)}));
    expectImport("PLAINTEXTKEYBLOB", PLAINTEXTKEYBLOB, CALG_AES_128, Bytes(36));
    expectImport("SYMMETRICWRAPKEYBLOB", SYMMETRICWRAPKEYBLOB, CALG_AES_128, Bytes(264));
    expectImport("SIMPLEBLOB", SIMPLEBLOB, CALG_AES_256, Bytes(260));
    expect({"CPExportKey", {prov, key, 0, PUBLICKEYBLOB, 0, room, roomLength}});
    expect({"CPCreateHash", {prov, CALG_SHA1, 0, 0, place}, nothing, nothing, 0, 1});
    expect({"CPHashData", {prov, whatIsMade, input, 9}, newHash, dropHash, 0, 1});
    expect({"CPGetHashParam", {prov, whatIsMade, HP_HASHVAL, data, result}, newHash, dropHash});
    expect({"CPSetHashParam", {prov, whatIsMade, HP_HMAC_INFO, input}, newHash, dropHash, 0, 2});
    expect({"CPDuplicateHash", {prov, finished, 0, 0, place}, nothing, nothing, 0, 1});
    expect({"CPDestroyHash", {prov, whatIsMade}, newHash, nothing, 0, 1});
    expect({"CPSignHash", {prov, whatIsMade, AT_SIGNATURE, 0, 0, data, result}, newHashToSign, dropHash});
    const DWORD badHash = static_cast<DWORD>(NTE_BAD_HASH);
    expect({"CPVerifySignature", {prov, whatIsMade, input, 32}, newHash, dropHash, 0, 0, untouched, badHash});
    expect({"CPEncrypt", {prov, key, 0, TRUE, 0, data, result, buffer.size()}, forgetPin});
    expect({"CPDecrypt", {prov, key, 0, TRUE, 0, data, result}, forgetPin});
    expect({"CPDecrypt symmetric", {prov, session, 0, TRUE, 0, data, result}, forgetPin});
    expect({"CPGenRandom", {prov, buffer.size(), data}});

    for (const ULONG_PTR opened : {key, session}) drop("CPDestroyKey", {prov, opened});
    drop("CPDestroyHash", {prov, finished});
    drop("CPReleaseContext", {prov});
}

TRANSCRIPT(FaultsTranscript, "the slots of key storage")
{
    ULONG_PTR provider = 0, key = 0, bare = 0, unfinished = 0, session = 0;
    void* state = nullptr;
    const std::wstring name = wideKeyName(token.keyPairs[0]);
    call("KSPOpenProvider", {addressOf(&provider)});
    for (ULONG_PTR* opened : {&key, &bare}) call("KSPOpenKey", {provider, addressOf(opened), addressOf(name.c_str())});
    call("KSPImportKey", {provider, key, addressOf(L"OpaqueTransport"), 0, addressOf(&session), input, 256});
    call("KSPCreatePersistedKey", {provider, addressOf(&unfinished), addressOf(L"RSA")});
    kspKeyOf(bare)->label = {};
    kspKeyOf(bare)->objectId.assign(Bytes{9});
    for (const ULONG_PTR opened : {key, unfinished, session})
        records.push_back({reinterpret_cast<const unsigned char*>(opened), sizeof(KspKey)});

    const Step nothing = [] {};
    const Step forgetPublicKey = [&] { kspKeyOf(bare)->publicKey = {}; };
    const Step forgetFinalizing = [&] { kspKeyOf(unfinished)->finalized = false, forgetPin(); };
    const auto free = [](ULONG_PTR block) { drop("KSPFreeBuffer", {block}); };
    const auto expectImport = [&](LPCWSTR type, const Bytes& blob) {
        expect({"KSPImportKey " + toUtf8(type), {provider, key, addressOf(type), 0, place, addressOf(blob.data()), blob.size()}});
    };
    const auto expectProperty = [&](const char* row, ULONG_PTR object) {
        expect({row, {provider, object, addressOf(L"SmartCardKeyCertificate"), room, large.size(), roomLength}});
    };
    const auto expectSetting = [&](LPCWSTR what, ULONG_PTR value, std::size_t size) {
        expect({"KSPSetKeyProperty " + toUtf8(what), {provider, key, addressOf(what), value, size}, forgetPin});
    };
    const auto expectExport = [&](const char* row, ULONG_PTR object, LPCWSTR type, const Step& prepare) {
        expect({row, {provider, object, 0, addressOf(type), 0, room, large.size(), roomLength}, prepare});
    };

    expect({"KSPOpenProvider", {place}, forgetOpening});
    expect({"KSPOpenKey", {provider, place, addressOf(name.c_str())}});
    expect({"KSPCreatePersistedKey", {provider, place, addressOf(L"RSA"), addressOf(L"a long name")}});
    expect({"KSPGetProviderProperty", {provider, addressOf(L"Name"), data, 256, result}});
    expectProperty("KSPGetKeyProperty", key);
    expectProperty("KSPGetKeyProperty by public key", bare);
    expect({"KSPSetProviderProperty", {provider, addressOf(L"SmartCardPin"), pinPlace, pin.size()}});
    expectSetting(L"SmartCardPin", pinPlace, pin.size());
    expectSetting(L"SmartCardKeyCertificate", input, bytes.size());
    expectSetting(L"IV", input, 16);
    expectExport("KSPExportKey", key, L"PUBLICBLOB", nothing);
    expectExport("KSPExportKey again from the token", bare, L"CAPIPUBLICBLOB", forgetPublicKey);
    expect({"KSPFinalizeKey", {provider, unfinished}, forgetFinalizing});
    expect({"KSPDeleteKey", {provider, key}, forgetPin});
    expect({"KSPEncrypt", {provider, key, input, 99, 0, data, 256, result}, forgetPin});
    expect({"KSPDecrypt", {provider, key, input, 256, 0, data, 256, result}, forgetPin});
    expect({"KSPDecrypt symmetric", {provider, session, input, 256, 0, data, 256, result}, forgetPin});
    expect({"KSPIsAlgSupported", {provider, addressOf(L"SHA1")}});
    // By contract the texts in these outputs stay, and the list in the state.
    expect({"KSPEnumAlgorithms", {provider, 0, result, place}, nothing, [&] { free(out); }, 4});
    const Step endEnumeration = [&] {
        if (out != untouched) {
            EXPECT_EQ(reinterpret_cast<const NCryptKeyName*>(out)->pszName, name) << "a key was skipped";
            free(out);
        }
        free(addressOf(std::exchange(state, nullptr)));
    };
    expect({"KSPEnumKeys", {provider, 0, place, addressOf(&state)}, nothing, endEnumeration, 3});
    expectImport(L"RSAPUBLICBLOB", concat({littleEndian({0x31415352, 1024, 3, 128, 0, 0}), Bytes(131, 1)}));
    expectImport(L"CAPIPUBLICBLOB", concat({Bytes(8), littleEndian({0x31415352, 1024, 3}), Bytes(128, 1)}));
    expectImport(L"KeyDataBlob", concat({littleEndian({0x4D42444B, 1, 32}), Bytes(32)}));
    expectImport(L"OpaqueKeyBlob", bytes);
    expectImport(L"OpaqueTransport", bytes);
    expect({"KSPSignHash", {provider, key, 0, input, 32, data, 256, result}, forgetPin});
    expect({"KSPVerifySignature", {provider, key, 0, input, 32, data, 256}});
    expect({"KSPPromptUser", {provider}, forgetPin});

    for (const ULONG_PTR opened : {key, bare, unfinished, session}) drop("KSPFreeKey", {provider, opened});
    drop("KSPFreeProvider", {provider});
}

} // namespace quelta::test
