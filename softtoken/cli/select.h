#pragma once

#include "store/token_store.h"

#include <functional>

namespace quelta::softtoken::cli {

// Returns the token's state, whether the token is plugged in or not. Throws TokenError if there is no token.
std::shared_ptr<const StoredToken> requireToken(const std::filesystem::path& folder);
// Applies `work` to the token's state and writes the state.
void change(const std::filesystem::path& folder, const std::function<void(StoredToken&)>& work);

// Selects a key pair by its identifier, the beginning of its identifier, or its label. An empty name selects the only key pair.
const StoredKeyPair& selectKeyPair(const StoredToken& state, const std::string& name);
bool isNamed(ByteView id, const std::string& label, const std::string& name);

// Takes "sign", "exchange" or "both". An empty text returns the fallback.
std::uint32_t usageNamed(const std::string& name, std::uint32_t fallback);
std::string nameOfUsage(std::uint32_t usage);
void requireFreeLabel(const StoredToken& state, const std::string& label);

// Writes to the file, or to the standard output if `file` is empty.
void give(const std::string& file, const std::string& text);

} // namespace quelta::softtoken::cli
