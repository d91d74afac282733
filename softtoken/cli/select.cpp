#include "cli/select.h"

#include "base/hex.h"
#include "base/token_error.h"
#include "store/files.h"

#include <algorithm>
#include <iostream>

namespace quelta::softtoken::cli {

namespace {

constexpr std::size_t shortestPrefix = 4;

struct UsageRow {
    std::uint32_t code;
    const char* name;
};

constexpr UsageRow usages[] = {{usageSigning, "sign"}, {usageKeyExchange, "exchange"}, {usageBoth, "both"}};

} // namespace

std::shared_ptr<const StoredToken> requireToken(const std::filesystem::path& folder)
{
    const Reading reading = readToken(folder);
    if (!reading) throw reading.error();
    if (!*reading) throw noTokenIn(folder);
    return *reading;
}

void change(const std::filesystem::path& folder, const std::function<void(StoredToken&)>& work)
{
    changeToken(folder, [&](StoredToken& state) {
        work(state);
        return true;
    });
}

bool isNamed(ByteView id, const std::string& label, const std::string& name)
{
    std::string upper = name;
    std::ranges::transform(upper, upper.begin(),
                           [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
    return name == label || (upper.size() >= shortestPrefix && toHex(id).starts_with(upper));
}

const StoredKeyPair& selectKeyPair(const StoredToken& state, const std::string& name)
{
    const StoredKeyPair* found = nullptr;
    for (const StoredKeyPair& pair : state.keyPairs) {
        if (!name.empty() && !isNamed(pair.id, pair.label, name)) continue;
        if (found != nullptr)
            throw TokenError(Result::noSuchKey, "several key pairs fit: name one by its identifier, see: quelta-token list");
        found = &pair;
    }
    if (found != nullptr) return *found;
    throw TokenError(Result::noSuchKey, name.empty() ? "the token has no key pair: make one with: quelta-token keygen"
                                                     : "no key pair " + name + " on the token: see: quelta-token list");
}

std::uint32_t usageNamed(const std::string& name, std::uint32_t fallback)
{
    for (const UsageRow& row : usages)
        if (name == row.name) return row.code;
    return fallback;
}

std::string nameOfUsage(std::uint32_t usage)
{
    for (const UsageRow& row : usages)
        if (row.code == usage) return row.name;
    return "none";
}

// Labels are unique because certificates find their key by its label as well.
void requireFreeLabel(const StoredToken& state, const std::string& label)
{
    const auto has = [&](const auto& item) { return item.label == label; };
    if (std::ranges::any_of(state.keyPairs, has) || std::ranges::any_of(state.aesKeys, has))
        throw TokenError(Result::badArgument, "there is a key labelled " + label + " already: choose another --label");
}

void give(const std::string& file, const std::string& text)
{
    if (file.empty())
        std::cout << text;
    else
        writeFile(pathFrom(file), toBytes(text));
}

} // namespace quelta::softtoken::cli
