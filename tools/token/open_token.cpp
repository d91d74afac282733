#include "tools/token/open_token.h"

#include "tools/console/failure.h"
#include "tools/token/provider_log.h"

#include <exception>

namespace quelta::tools {

namespace {

// What `open` gives for the wanted interface, or for the first with which it works.
template <class Open>
auto firstThatWorks(const std::optional<Interface>& wanted, Open open)
{
    if (wanted) return open(*wanted);
    std::exception_ptr refusal;
    try {
        return open(Interface::csp);
    } catch (const Failure&) {
        refusal = std::current_exception();
    }
    try {
        return open(Interface::ksp);
    } catch (const Failure&) {
        std::rethrow_exception(refusal);
    }
}

template <class Open>
auto opened(const std::optional<Interface>& wanted, Open open)
{
    auto result = firstThatWorks(wanted, open);
    // What the provider logged while its keys were looked at says nothing of what fails later.
    rememberLogEnd();
    return result;
}

} // namespace

OpenedKey openKey(const TokenOptions& options, bool force, ChooseKey choose)
{
    return opened(options.provider, [&](Interface kind) -> OpenedKey {
        auto provider = openProvider(kind);
        TokenKey key = choose(provider->keys(), {options.key, force});
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

} // namespace quelta::tools
