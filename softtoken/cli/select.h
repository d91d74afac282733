#pragma once

#include "store/token_store.h"

#include <functional>

namespace quelta::softtoken::cli {

// The token's state, whether it is plugged in or not. Throws TokenError if there is none.
std::shared_ptr<const StoredToken> requireToken(const std::filesystem::path& folder);
// Always writes.
void change(const std::filesystem::path& folder, const std::function<void(StoredToken&)>& work);

// By the identifier, enough of its beginning, or the label; with an empty name the only one there is.
const StoredKeyPair& selectKeyPair(const StoredToken& state, const std::string& name);
bool isNamed(ByteView id, const std::string& label, const std::string& name);

// "sign", "exchange", "both"; an empty text is the fallback.
std::uint32_t usageNamed(const std::string& name, std::uint32_t fallback);
std::string nameOfUsage(std::uint32_t usage);
void requireFreeLabel(const StoredToken& state, const std::string& label);

// To the file, or to the standard output if there is no name.
void give(const std::string& file, const std::string& text);

} // namespace quelta::softtoken::cli
