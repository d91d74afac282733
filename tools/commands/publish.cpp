#include "tools/commands/commands.h"

#include "common/publishing_end.h"
#include "tools/check/dll_file.h"
#include "tools/cms/certificates.h"
#include "tools/commands/certificate_store.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/token/csp_provider.h"
#include "tools/token/key_choice.h"

#include <algorithm>

namespace quelta::tools {

namespace {

constexpr DWORD pollMilliseconds = 2000;
// Without a token each opening leaves an error line in the provider's log, so only every fifth poll opens the provider.
constexpr int pollsWithoutToken = 5;

struct Entry {
    Bytes certificate;
    std::string subject;
    std::optional<KeyPlace> place;
};

// The certificates for each of the two stores.
struct Content {
    std::vector<Entry> own;
    std::vector<Entry> issuers;
};

void addOnce(std::vector<Entry>& to, Entry entry)
{
    if (std::ranges::find(to, entry.certificate, &Entry::certificate) == to.end()) to.push_back(std::move(entry));
}

// Roots are left out. Users and administrators decide themselves which roots they trust.
void addIssuers(std::vector<Entry>& to, const std::vector<Bytes>& chain, ByteView own)
{
    for (const Bytes& der : chain) {
        const CertificateContext certificate = parseCertificate(der);
        if (certificate && !isSelfIssued(*certificate) && !sameBytes(der, own))
            addOnce(to, {der, subjectOf(*certificate), std::nullopt});
    }
}

// Adds the keys for this interface. Returns whether the token has keys for the other one.
bool addKeys(Content& content, Interface kind)
{
    bool others = false;
    const auto provider = openProvider(kind);
    for (const KeyEntry& key : provider->keys()) {
        if (!key.certificate) continue;
        if ((key.algorithm == "RSA") != (kind == Interface::csp)) {
            others = true;
            continue;
        }
        const Bytes own = toBytes(encodedOf(*key.certificate));
        const DWORD providerType = kind == Interface::csp ? PROV_RSA_FULL : 0;
        addOnce(content.own, {own, subjectOf(*key.certificate), KeyPlace{key.name, providerType, key.keySpec}});
        addIssuers(content.issuers, provider->chain(key), own);
    }
    return others;
}

Content contentOfToken()
{
    Content content;
    if (addKeys(content, Interface::csp)) addKeys(content, Interface::ksp);
    return content;
}

void removeOthers(UserStore& store, const std::vector<Entry>& wanted, const char* name, Outcome& outcome)
{
    for (const Bytes& der : store.marked()) {
        if (std::ranges::find(wanted, der, &Entry::certificate) != wanted.end()) continue;
        const CertificateContext certificate = parseCertificate(der);
        store.remove(der);
        outcome.lines.push_back("took " + subjectOf(*certificate) + " out of " + name);
        outcome.json["removed"].push_back({{"store", name}, {"subject", subjectOf(*certificate)}});
    }
}

void putAll(UserStore& store, const std::vector<Entry>& entries, const char* name, Outcome& outcome)
{
    for (const Entry& entry : entries) {
        const Placed placed = store.put(entry.certificate, entry.place ? &*entry.place : nullptr);
        const char* done = placed == Placed::added       ? "put into "
                           : placed == Placed::unchanged ? "is already in "
                                                         : "was put by somebody else, and is left as it is, in ";
        outcome.lines.push_back(entry.subject + ": " + done + name);
        outcome.json["certificates"].push_back(
            {{"store", name}, {"subject", entry.subject}, {"changed", placed == Placed::added}});
    }
}

Outcome makeIt(const Content& content)
{
    UserStore own(L"My");
    UserStore issuers(L"CA");
    Outcome outcome{{}, {{"certificates", Json::array()}, {"removed", Json::array()}}};
    removeOthers(own, content.own, "My", outcome);
    removeOthers(issuers, content.issuers, "CA", outcome);
    putAll(own, content.own, "My", outcome);
    putAll(issuers, content.issuers, "CA", outcome);
    return outcome;
}

void tell(const Outcome& outcome)
{
    for (const std::string& line : outcome.lines) printLine(line);
}

// A token that is pulled while it is read counts as none until the next poll.
Content contentIfPluggedIn()
{
    try {
        return contentOfToken();
    } catch (const Failure&) {
        return {};
    }
}

bool installerAsks()
{
    return static_cast<bool>(File(OpenEventW(SYNCHRONIZE, FALSE, publishingEndsEvent)));
}

Outcome watch()
{
    CryptContext held;
    tell(makeIt(contentIfPluggedIn()));
    printLine("waiting for tokens; Ctrl-C ends it");
    auto seen = keysIfPluggedIn(held);
    for (int polls = 0; !wasInterrupted(); Sleep(pollMilliseconds)) {
        if (installerAsks()) return {{"ended for the installer; what is published stays"}};
        if (!seen && ++polls % pollsWithoutToken != 0) continue;
        auto now = keysIfPluggedIn(held);
        if (now == seen) continue;
        seen = std::move(now);
        tell(makeIt(seen ? contentIfPluggedIn() : Content{}));
    }
    return {{"interrupted; what is published stays: quelta unpublish takes it away"}};
}

} // namespace

Outcome publish(bool watching)
{
    requireFittingFiles();
    if (watching) return watch();
    Outcome outcome = makeIt(contentOfToken());
    if (outcome.json["certificates"].empty())
        outcome.lines.emplace_back("the token holds no certificate of a key; import one first");
    return outcome;
}

Outcome unpublish()
{
    Outcome outcome = makeIt({});
    if (outcome.lines.empty()) outcome.lines.emplace_back("nothing was published");
    return outcome;
}

} // namespace quelta::tools
