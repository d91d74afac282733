#include "tools/token/open_token.h"

#include "tools/check/dll_file.h"
#include "tools/console/failure.h"
#include "tools/console/provider_log.h"

#include <algorithm>
#include <exception>

namespace quelta::tools {

namespace {

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
            const auto refusal = std::current_exception();
            try {
                return open(Interface::ksp);
            } catch (const Failure&) {
                std::rethrow_exception(refusal);
            }
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
    std::exception_ptr first;
    bool opened = false;
    for (const Interface kind : {Interface::csp, Interface::ksp}) {
        try {
            merge(all, openProvider(kind)->keys(), kind == Interface::csp ? &ListedKey::throughCsp : &ListedKey::throughKsp);
            opened = true;
        } catch (const Failure&) {
            if (!first) first = std::current_exception();
        }
    }
    if (!opened) std::rethrow_exception(first);
    return all;
}

} // namespace quelta::tools
