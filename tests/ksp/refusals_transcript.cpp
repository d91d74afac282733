#include "ksp/ksp_scenario.h"

#include "ksp/provider.h"
#include "token/handles.h"

#include <regex>

namespace quelta::test {

class KspRefusalsTranscript : public KspScenario {
protected:
    void call(const KspSlot& slot, const KspSlot::Values& values, const std::string& words = "")
    {
        log.forget();
        auto& lines = answers_[statusText(slot(values))];
        if (lines.empty() || lines.back().size() > 100) lines.emplace_back();
        lines.back() += " " + slot.name + words + (log.takeLines() == std::vector{debug(slot.name)} ? "" : " (!)");
    }
    void noteAnswers()
    {
        for (const auto& [status, lines] : std::exchange(answers_, {})) {
            for (const auto& line : lines) recorder.note(status + ":" + line);
        }
    }
    void callEach(const char* title, const char* argumentsLike, const KspSlot::Values& values)
    {
        recorder.note(title);
        for (const auto& slot : kspSlots()) {
            if (std::regex_match(slot.arguments, std::regex(argumentsLike))) call(slot, values);
        }
        noteAnswers();
    }

private:
    std::map<std::string, std::vector<std::string>> answers_;
};

TEST_F(KspRefusalsTranscript, TableIsFoundWithoutANameWhateverTheFlags)
{
    std::array<KeyStorageFunctionTable*, 2> tables{};
    for (auto** place : {&tables[0], &tables[1], static_cast<KeyStorageFunctionTable**>(nullptr)}) {
        recorder.record("GetKeyStorageInterface", place ? "null, flags 64" : "nowhere",
                        [&] { return statusText(GetKeyStorageInterface(nullptr, place, 64)); });
    }
    const auto& version = tables[0]->version;
    recorder.note((tables[0] == tables[1] ? "one of version " : "two of version ") + std::to_string(version.MajorVersion) + "." +
                  std::to_string(version.MinorVersion));
}

TEST_F(KspRefusalsTranscript, EverythingIsWrong)
{
    callEach("nothing at all", ".*", {});
    auto closed = std::make_unique<KspProvider>();
    callEach("a provider that is not open", "P.*", {addressOf(closed.get())});
    recorder.record("KSPFreeProvider", "not open",
                    [&] { return statusText(kspSlot("KSPFreeProvider")({handOut(std::move(closed))})); });
    callEach("a provider and nothing else", "P.*[A-Z].*", {ksp.provider});
    callEach("a provider, a key and nothing else", "PK.*[A-Z].*", {ksp.provider, withKey(algorithmRsa1024)});
    callEach("what looks at nothing", "x", {16, 16, 16, 16, 16, 16, 16, 16, 16});
}

TEST_F(KspRefusalsTranscript, OneThingIsMissingOrAnInputIsLongerThanTheTokenCanCount)
{
    const auto key = withKey(algorithmRsa1024);
    std::uint64_t made = 0;
    const std::array<BYTE, 128> bytes{};
    constexpr std::string_view letters = "PKHTILor";
    const ULONG_PTR good[] = {
        ksp.provider, key, addressOf(&made), addressOf(L"?"), addressOf(bytes.data()), 1, addressOf(bytes.data()),
        bytes.size(), 0};
    constexpr ULONG_PTR endless = 0x80000000;
    for (const auto& slot : kspSlots()) {
        if (slot.arguments.front() != 'P') continue;
        std::string each;
        for (const char letter : slot.arguments) each += letter == 'I' ? "IL" : letter == 'O' ? "orH" : std::string(1, letter);
        for (std::size_t i = 0; i < each.size(); ++i) {
            KspSlot::Values values{};
            std::ranges::transform(each, values.begin(), [&](char c) { return good[std::min(letters.find(c), letters.size())]; });
            if (each[i] < 'A' || each[i] > 'Z') continue;
            values[i] = 0;
            call(slot, values, std::string("-") + each[i] + std::to_string(i + 1));
            values[i] = endless;
            if (each[i] == 'L') call(slot, values, "-endless");
        }
    }
    for (const LPCWSTR property : {L"IV", L"ChainingMode", L"SmartCardKeyCertificate"}) {
        call(kspSlot("KSPSetKeyProperty"), {ksp.provider, key, addressOf(property), addressOf(bytes.data()), endless},
             "-endless");
    }
    noteAnswers();
    recorder.note(made == 0 ? "nothing was handed out" : "something was handed out");
}

// Each buffer ends at an inaccessible page, or has three bytes to spare.
TEST_F(KspRefusalsTranscript, EachSlotTellsTheSizeAndWritesOnlyWhatFits)
{
    auto& pair = token.withKeyPair(usageBoth, algorithmRsa1024);
    token.withCertificateOf(pair, counting(40));
    const auto key = opened(pair);
    cachePin();
    token.cipher.bytes = token.signature.bytes = counting(128);
    errorsAlone();
    const struct {
        DWORD size;
        const char* slot;
        std::vector<KspCalls::Stated> arguments;
    } rows[] = {{68, "KSPGetProviderProperty", {L"Name"}},
                {4, "KSPGetKeyProperty", {key, L"Length"}},
                {40, "KSPGetKeyProperty", {key, L"SmartCardKeyCertificate"}},
                {155, "KSPExportKey", {key, L"PUBLICBLOB"}},
                {148, "KSPExportKey", {key, L"CAPIPUBLICBLOB"}},
                {128, "KSPSignHash", {key, Bytes{1, 2, 3}}},
                {128, "KSPEncrypt", {key, Bytes{1, 2, 3}}}};
    for (auto [size, slot, arguments] : rows) {
        arguments.emplace_back(room(0));
        for (const Place& place : {query(size), room(size - 1), room(size + 3)}) {
            arguments.back() = place;
            ksp(slot, arguments);
        }
    }
}

} // namespace quelta::test
