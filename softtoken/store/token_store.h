// A token is a folder: token.json is its state, token.lock what changers and loaders hold for a moment. A change is written
// beside token.json, flushed and moved over it, so that whoever looks sees the old state or the new one, and a process that dies
// in between loses nothing.
#pragma once

#include "base/token_error.h"
#include "store/stored_token.h"

#include <expected>
#include <filesystem>
#include <functional>
#include <memory>

namespace quelta::softtoken {

// From UTF-8. Under Wine a Unix path is taken too, whatever the current drive is.
std::filesystem::path pathFrom(const std::string& text);
std::string textOf(const std::filesystem::path& path);

// QUELTA_TOKEN_DIR as it stands at this moment, else a folder under the user's local application data.
std::filesystem::path tokenFolder();

// Null if there is no token in the folder; why, if the one that is there can't be read.
using Reading = std::expected<std::shared_ptr<const StoredToken>, TokenError>;
// Parses again only when the file has changed.
Reading readToken(const std::filesystem::path& folder);

// The failure to throw if there is no token.
TokenError noTokenIn(const std::filesystem::path& folder);

// Throws TokenError if changes can't be written: such a token could not count a wrong PIN.
void requireChangeable(const std::filesystem::path& folder);

// Applies the change to the state as it is now, with every other changer kept out, and writes it unless the change answers false.
void changeToken(const std::filesystem::path& folder, const std::function<bool(StoredToken&)>& change);

// Refuses to overwrite a token unless told so.
void createToken(const std::filesystem::path& folder, const StoredToken& state, bool overwrite);

} // namespace quelta::softtoken
