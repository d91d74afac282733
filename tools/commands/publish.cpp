#include "tools/commands/publish.h"

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

struct Entry {
    Bytes certificate;
    std::string subject;
    std::optional<KeyPlace> place;
};

// What belongs into each of the two stores.
struct Content {
    std::vector<Entry> own;
    std::vector<Entry> issuers;
};

void addOnce(std::vector<Entry>& to, Entry entry)
{
    if (std::ranges::find(to, entry.certificate, &Entry::certificate) == to.end()) to.push_back(std::move(entry));
}

// A root is not ours to hand out: whoever trusts it decides that for himself.
void addIssuers(std::vector<Entry>& to, const std::vector<Bytes>& chain, ByteView own)
{
    for (const Bytes& der : chain) {
        const CertificateContext certificate = parseCertificate(der);
        if (certificate && !isSelfIssued(*certificate) && !sameBytes(der, own))
            addOnce(to, {der, subjectOf(*certificate), std::nullopt});
    }
}

KeyPlace placeOf(TokenProvider& provider, const TokenKey& key)
{
    auto* csp = dynamic_cast<CspProvider*>(&provider);
    return csp ? KeyPlace{key.name, PROV_RSA_FULL, csp->keySpec(key)} : KeyPlace{key.name, 0, 0};
}

Interface meantFor(const TokenKey& key, const PublishOptions& options)
{
    return options.provider.value_or(key.algorithm == "RSA" ? Interface::csp : Interface::ksp);
}

// Whether the token has keys that are meant for the other interface.
bool addKeys(Content& content, Interface kind, const PublishOptions& options)
{
    bool others = false;
    const auto provider = openProvider(kind);
    for (const TokenKey& key : provider->keys()) {
        if (!key.certificate) continue;
        if (meantFor(key, options) != kind) {
            others = true;
            continue;
        }
        const Bytes own = toBytes(encodedOf(*key.certificate));
        addOnce(content.own, {own, subjectOf(*key.certificate), placeOf(*provider, key)});
        addIssuers(content.issuers, provider->chain(key), own);
    }
    return others;
}

Content contentOfToken(const PublishOptions& options)
{
    Content content;
    const Interface first = options.provider.value_or(Interface::csp);
    if (addKeys(content, first, options)) addKeys(content, Interface::ksp, options);
    return content;
}

void removeOthers(UserStore& store, const std::vector<Entry>& wanted, const char* name, Answer& answer)
{
    for (const Bytes& der : store.marked()) {
        if (std::ranges::find(wanted, der, &Entry::certificate) != wanted.end()) continue;
        const CertificateContext certificate = parseCertificate(der);
        store.remove(der);
        answer.lines.push_back("took " + subjectOf(*certificate) + " out of " + name);
        answer.json["removed"].push_back({{"store", name}, {"subject", subjectOf(*certificate)}});
    }
}

void putAll(UserStore& store, const std::vector<Entry>& entries, const char* name, Answer& answer)
{
    for (const Entry& entry : entries) {
        const Placed placed = store.put(entry.certificate, entry.place ? &*entry.place : nullptr);
        const char* outcome = placed == Placed::added       ? "put into "
                              : placed == Placed::unchanged ? "is already in "
                                                            : "was put by somebody else, and is left as it is, in ";
        answer.lines.push_back(entry.subject + ": " + outcome + name);
        answer.json["certificates"].push_back(
            {{"store", name}, {"subject", entry.subject}, {"changed", placed == Placed::added}});
    }
}

Answer emptyAnswer()
{
    Answer answer;
    answer.json = {{"certificates", Json::array()}, {"removed", Json::array()}};
    return answer;
}

Answer makeIt(const Content& content)
{
    UserStore own(L"My");
    UserStore issuers(L"CA");
    Answer answer = emptyAnswer();
    removeOthers(own, content.own, "My", answer);
    removeOthers(issuers, content.issuers, "CA", answer);
    putAll(own, content.own, "My", answer);
    putAll(issuers, content.issuers, "CA", answer);
    return answer;
}

void tell(const Answer& answer)
{
    for (const std::string& line : answer.lines) printLine(line);
}

// A token that is pulled while it is read counts as none, until the next look.
Content contentIfPluggedIn(const PublishOptions& options)
{
    try {
        return contentOfToken(options);
    } catch (const Failure&) {
        return {};
    }
}

Answer watch(const PublishOptions& options)
{
    leaveOwnWindow();
    TokenWatch token;
    std::optional<std::vector<std::string>> seen;
    tell(makeIt(contentIfPluggedIn(options)));
    for (seen = token.look(); !wasInterrupted(); Sleep(pollMilliseconds)) {
        auto now = token.look();
        if (now == seen) continue;
        seen = std::move(now);
        tell(makeIt(seen ? contentIfPluggedIn(options) : Content{}));
    }
    return {{"interrupted; what is published stays: quelta unpublish takes it away"}};
}

} // namespace

Answer publish(const PublishOptions& options)
{
    if (options.watch) return watch(options);
    Answer answer = makeIt(contentOfToken(options));
    if (answer.json["certificates"].empty())
        answer.lines.emplace_back("the token holds no certificate of a key; import one first");
    return answer;
}

Answer unpublish()
{
    Answer answer = makeIt({});
    if (answer.lines.empty()) answer.lines.emplace_back("nothing was published");
    return answer;
}

} // namespace quelta::tools
