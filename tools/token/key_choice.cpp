#include "tools/token/key_choice.h"

#include "base/hex.h"
#include "tools/cms/certificates.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"

#include <algorithm>
#include <charconv>
#include <numeric>

namespace quelta::tools {

namespace {

struct Need {
    bool KeyEntry::*ability;
    const char* purpose;
    // Of the certificate; 0 if it is not asked.
    BYTE usage;
};

constexpr Need signing{&KeyEntry::canSign, "sign", signatureUsage};
constexpr Need encryption{&KeyEntry::canDecrypt, "encrypt", encryptionUsage};
constexpr Need decryption{&KeyEntry::canDecrypt, "decrypt", 0};

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

Indices byIdentifier(const std::vector<KeyEntry>& keys, const std::string& text)
{
    if (!std::ranges::all_of(text, [](char c) { return hexDigit(c).has_value(); })) return {};
    return indicesWhere(keys, [&](const KeyEntry& key) { return folded(key.name).starts_with(folded(text)); });
}

Indices byHolder(const std::vector<KeyEntry>& keys, const std::string& text)
{
    return indicesWhere(
        keys, [&](const KeyEntry& key) { return key.certificate && folded(displayNameOf(*key.certificate)) == folded(text); });
}

Indices bySubject(const std::vector<KeyEntry>& keys, const std::string& text)
{
    return indicesWhere(keys, [&](const KeyEntry& key) {
        return key.certificate && folded(subjectOf(*key.certificate)).find(folded(text)) != std::string::npos;
    });
}

// Why the certificate should not be used for this; empty if nothing speaks against it.
std::string objection(const CERT_CONTEXT& certificate, const Need& need)
{
    if (!need.usage) return {};
    if (std::string fault = validityFault(certificate, timeNow()); !fault.empty()) return fault;
    return mayBeUsedFor(certificate, need.usage) ? "" : std::string("does not allow the key to ") + need.purpose;
}

[[noreturn]] void refuse(const std::string& whose, const std::string& fault, const Need& need, const char* other)
{
    throw Failure("the certificate of " + whose + " " + fault + "; choose another with " + other + ", or " + need.purpose +
                  " all the same with --force");
}

void refuseUnable(const KeyEntry& key, const Need& need)
{
    if (!key.certificate)
        throw Failure("key " + shortName(key) + " has no certificate on the token; import one, or choose another with --key");
    if (!(key.*need.ability))
        throw Failure("key " + describe(key) + " can't " + need.purpose +
                      " through this provider; choose another with --key, or try the other --provider");
}

const KeyEntry& bestOf(const std::vector<KeyEntry>& keys, const Need& need)
{
    const Indices able = indicesWhere(keys, [&](const KeyEntry& key) { return key.certificate && key.*need.ability; });
    if (able.empty())
        throw Failure(std::string("no key on the token can ") + need.purpose + " and has a certificate; it has " +
                      describeAll(keys, everyIndex(keys)) + "; import a certificate for one of them");
    const auto good = std::ranges::find_if(able, [&](std::size_t i) { return objection(*keys[i].certificate, need).empty(); });
    return keys[good == able.end() ? able.front() : *good];
}

KeyEntry choose(std::vector<KeyEntry> keys, const KeyWish& wish, const Need& need)
{
    if (keys.empty()) throw Failure("the token holds no key; make one on it first");
    const KeyEntry& chosen = wish.wanted.empty() ? bestOf(keys, need) : keys[findKey(keys, wish.wanted)];
    refuseUnable(chosen, need);
    const std::string fault = wish.force ? "" : objection(*chosen.certificate, need);
    if (!fault.empty()) refuse("key " + describe(chosen), fault, need, "--key");
    return std::move(keys[static_cast<std::size_t>(&chosen - keys.data())]);
}

} // namespace

std::size_t findKey(const std::vector<KeyEntry>& keys, const std::string& wanted)
{
    if (const auto row = rowOf(wanted, keys.size())) return *row;
    for (const auto find : {byIdentifier, byHolder, bySubject}) {
        const Indices found = find(keys, wanted);
        if (found.size() == 1) return found.front();
        if (!found.empty()) throw Failure(wanted + " fits several keys; say which with --key: " + describeAll(keys, found));
    }
    throw Failure("no key on the token fits " + wanted + "; choose one with --key: " + describeAll(keys, everyIndex(keys)));
}

KeyEntry chooseSigningKey(std::vector<KeyEntry> keys, const KeyWish& wish)
{
    return choose(std::move(keys), wish, signing);
}

KeyEntry chooseEncryptionKey(std::vector<KeyEntry> keys, const KeyWish& wish)
{
    return choose(std::move(keys), wish, encryption);
}

KeyEntry chooseDecryptionKey(std::vector<KeyEntry> keys, const KeyWish& wish)
{
    return choose(std::move(keys), wish, decryption);
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
