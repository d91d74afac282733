#include "tools/token/open_token.h"

#include "tools/check/dll_file.h"
#include "tools/console/failure.h"
#include "tools/console/provider_log.h"

#include <algorithm>

namespace quelta::tools {

namespace {

template <class Open>
auto openedOrNone(Open open, Interface kind) -> std::optional<decltype(open(kind))>
{
    try {
        return open(kind);
    } catch (const Failure&) {
        return std::nullopt;
    }
}

// Returns the result of `open` for the wanted interface, else for the first that works.
template <class Open>
auto opened(const std::optional<Interface>& wanted, Open open)
{
    requireFittingFiles();
    auto result = [&] {
        if (wanted) return open(*wanted);
        try {
            return open(Interface::csp);
        } catch (const Failure&) {
            if (auto other = openedOrNone(open, Interface::ksp)) return *std::move(other);
            throw;
        }
    }();
    // Error lines of the opening do not explain a later failure.
    rememberLogEnd();
    return result;
}

void merge(std::vector<ListedKey>& into, std::vector<KeyEntry> keys, bool ListedKey::*through)
{
    for (KeyEntry& key : keys) {
        auto known = std::ranges::find_if(into, [&](const ListedKey& row) { return row.key.name == key.name; });
        if (known == into.end()) {
            known = into.insert(known, {std::move(key)});
        } else {
            known->key.canSign |= key.canSign;
            known->key.canDecrypt |= key.canDecrypt;
            if (!known->key.certificate) known->key.certificate = std::move(key.certificate);
        }
        // CryptoAPI lists EC keys, but can't use them.
        (*known).*through |= through == &ListedKey::throughKsp || known->key.algorithm == "RSA";
    }
}

} // namespace

OpenedKey openKey(const TokenOptions& options, const Purpose& purpose, bool force)
{
    return opened(options.provider, [&](Interface kind) -> OpenedKey {
        auto provider = openProvider(kind);
        KeyEntry key = chooseKey(provider->keys(), purpose, options.key, force);
        return {std::move(provider), std::move(key)};
    });
}

std::unique_ptr<TokenProvider> openAny(const TokenOptions& options)
{
    return opened(options.provider, openProvider);
}

void logIn(TokenProvider& provider, const PinSource& pin)
{
    if (!pin.isDialog()) provider.usePin(*readPin(pin));
}

std::vector<ListedKey> listKeys()
{
    requireFittingFiles();
    std::vector<ListedKey> all;
    const auto addFromKeyStorage = [&] {
        try {
            merge(all, openProvider(Interface::ksp)->keys(), &ListedKey::throughKsp);
            return true;
        } catch (const Failure&) {
            return false;
        }
    };
    try {
        merge(all, openProvider(Interface::csp)->keys(), &ListedKey::throughCsp);
    } catch (const Failure&) {
        if (addFromKeyStorage()) return all;
        throw;
    }
    addFromKeyStorage();
    return all;
}

} // namespace quelta::tools
