#include "token_provider.h"

#include "csp_provider.h"
#include "failure.h"
#include "ksp_provider.h"

#include <algorithm>

namespace quelta::tools {

namespace {

struct Need {
    bool TokenKey::*ability;
    const char* purpose;
};

constexpr Need signing{&TokenKey::canSign, "sign"};
constexpr Need decryption{&TokenKey::canDecrypt, "decrypt"};

std::string namesOf(const std::vector<TokenKey>& keys)
{
    std::string names;
    for (const TokenKey& key : keys) names += (names.empty() ? "" : ", ") + key.name;
    return names;
}

// Key names are hexadecimal digits in upper case; a user may type them as they come.
std::string upperCase(std::string name)
{
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
    return name;
}

TokenKey named(std::vector<TokenKey>& keys, const std::string& name, const Need& need)
{
    const auto found = std::ranges::find(keys, upperCase(name), &TokenKey::name);
    if (found == keys.end()) throw Failure("no key " + name + " on the token; it has " + namesOf(keys));
    if (!found->certificate)
        throw Failure("key " + found->name + " has no certificate on the token; import one, or choose another key");
    if (!((*found).*need.ability))
        throw Failure("key " + found->name + " can't " + need.purpose +
                      " through this provider; choose another with --container, or try " + "the other --provider");
    return std::move(*found);
}

TokenKey choose(std::vector<TokenKey> keys, const std::string& name, const Need& need)
{
    if (keys.empty()) throw Failure("the token holds no key; make one on it first");
    if (!name.empty()) return named(keys, name, need);
    const auto found = std::ranges::find_if(keys, [&](const TokenKey& key) { return key.certificate && key.*need.ability; });
    if (found == keys.end())
        throw Failure(std::string("no key on the token can ") + need.purpose + " and has a certificate; it has " + namesOf(keys) +
                      "; import a certificate for one of them");
    return std::move(*found);
}

} // namespace

std::unique_ptr<TokenProvider> openProvider(Interface kind)
{
    if (kind == Interface::ksp) return openKeyStorage();
    return openCsp();
}

TokenKey chooseSigningKey(std::vector<TokenKey> keys, const std::string& name)
{
    return choose(std::move(keys), name, signing);
}

TokenKey chooseDecryptionKey(std::vector<TokenKey> keys, const std::string& name)
{
    return choose(std::move(keys), name, decryption);
}

} // namespace quelta::tools
