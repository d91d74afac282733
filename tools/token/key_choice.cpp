#include "tools/token/key_choice.h"

#include "base/hex.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace quelta::tools {

namespace {

using Indices = std::vector<std::size_t>;

std::string describe(const KeyEntry& key)
{
    return shortName(key) + " (" + (key.certificate ? displayNameOf(*key.certificate) : "no certificate") + ")";
}

std::string describeAll(const std::vector<KeyEntry>& keys, const Indices& which)
{
    std::string text;
    for (const std::size_t i : which) text += (text.empty() ? "" : ", ") + std::to_string(i + 1) + " " + describe(keys[i]);
    return text;
}

Indices everyIndex(const std::vector<KeyEntry>& keys)
{
    Indices all(keys.size());
    std::iota(all.begin(), all.end(), 0U);
    return all;
}

template <class Matches>
Indices indicesWhere(const std::vector<KeyEntry>& keys, Matches matches)
{
    Indices found = everyIndex(keys);
    std::erase_if(found, [&](std::size_t i) { return !matches(keys[i]); });
    return found;
}

std::optional<std::size_t> rowOf(const std::string& text, std::size_t count)
{
    std::size_t row = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), row);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size() || row == 0 || row > count) return std::nullopt;
    return row - 1;
}

// The ways to name a key, in their order: the beginning of its identifier, the holder, a part of the subject.
constexpr bool (*waysToFit[])(const KeyEntry& key, const std::string& text) = {
    [](const KeyEntry& key, const std::string& text) {
        return std::ranges::all_of(text, [](char c) { return hexDigit(c).has_value(); }) && folded(key.name).starts_with(text);
    },
    [](const KeyEntry& key, const std::string& text) {
        return key.certificate && folded(displayNameOf(*key.certificate)) == text;
    },
    [](const KeyEntry& key, const std::string& text) {
        return key.certificate && folded(subjectOf(*key.certificate)).find(text) != std::string::npos;
    },
};

// Returns why the certificate should not be used for this purpose; empty if it may be used.
std::string objection(const CERT_CONTEXT& certificate, const Purpose& purpose)
{
    if (!purpose.usage) return {};
    if (std::string fault = validityFault(certificate, timeNow()); !fault.empty()) return fault;
    return mayBeUsedFor(certificate, purpose.usage) ? "" : std::string("does not allow the key to ") + purpose.verb;
}

[[noreturn]] void refuse(const std::string& whose, const std::string& fault, const Purpose& purpose, const char* other)
{
    throw Failure("the certificate of " + whose + " " + fault + "; choose another with " + other + ", or " + purpose.verb +
                  " all the same with --force");
}

void refuseUnable(const KeyEntry& key, const Purpose& purpose)
{
    if (!key.certificate)
        throw Failure("key " + shortName(key) + " has no certificate on the token; import one, or choose another with --key");
    if (!(key.*purpose.ability))
        throw Failure("key " + describe(key) + " can't " + purpose.verb +
                      " through this provider; choose another with --key, or try the other --provider");
}

std::size_t bestOf(const std::vector<KeyEntry>& keys, const Purpose& purpose)
{
    const Indices able = indicesWhere(keys, [&](const KeyEntry& key) { return key.certificate && key.*purpose.ability; });
    if (able.empty())
        throw Failure(std::string("no key on the token can ") + purpose.verb + " and has a certificate; it has " +
                      describeAll(keys, everyIndex(keys)) + "; import a certificate for one of them");
    const auto good = std::ranges::find_if(able, [&](std::size_t i) { return objection(*keys[i].certificate, purpose).empty(); });
    return good == able.end() ? able.front() : *good;
}

} // namespace

std::size_t findKey(const std::vector<KeyEntry>& keys, const std::string& wanted)
{
    if (const auto row = rowOf(wanted, keys.size())) return *row;
    for (const auto fits : waysToFit) {
        const Indices found = indicesWhere(keys, [&](const KeyEntry& key) { return fits(key, folded(wanted)); });
        if (found.size() == 1) return found.front();
        if (!found.empty()) throw Failure(wanted + " fits several keys; say which with --key: " + describeAll(keys, found));
    }
    throw Failure("no key on the token fits " + wanted + "; choose one with --key: " + describeAll(keys, everyIndex(keys)));
}

KeyEntry chooseKey(std::vector<KeyEntry> keys, const Purpose& purpose, const std::string& wanted, bool force)
{
    if (keys.empty()) throw Failure("the token holds no key; make one on it first");
    const std::size_t chosen = wanted.empty() ? bestOf(keys, purpose) : findKey(keys, wanted);
    refuseUnable(keys[chosen], purpose);
    const std::string fault = force ? "" : objection(*keys[chosen].certificate, purpose);
    if (!fault.empty()) refuse("key " + describe(keys[chosen]), fault, purpose, "--key");
    return std::move(keys[chosen]);
}

void refuseForEncryption(const CERT_CONTEXT& certificate)
{
    const std::string fault = objection(certificate, encryption);
    if (!fault.empty()) refuse(displayNameOf(certificate), fault, encryption, "--cert");
}

std::string shortName(const KeyEntry& key)
{
    return key.name.substr(0, 8);
}

} // namespace quelta::tools
