// A token is a folder. token.json holds its state. token.lock is locked while the state is read or changed. A change is written
// to a file beside token.json, flushed and moved over it. Readers see the old state or the new one, and a process that dies in
// between loses nothing.
#pragma once

#include "base/token_error.h"
#include "store/stored_token.h"

#include <expected>
#include <filesystem>
#include <functional>
#include <memory>

namespace quelta::softtoken {

// Converts a path from UTF-8. Under Wine a Unix path is accepted too, whatever the current drive is.
std::filesystem::path pathFrom(const std::string& text);
std::string textOf(const std::filesystem::path& path);

// Returns the present value of QUELTA_TOKEN_DIR, else a folder under the user's local application data.
std::filesystem::path tokenFolder();

// Null if the folder has no token. The error says why a token can't be read.
using Reading = std::expected<std::shared_ptr<const StoredToken>, TokenError>;
// Parses the file only if it has changed since the last call.
Reading readToken(const std::filesystem::path& folder);

// Returns the error to throw if there is no token.
TokenError noTokenIn(const std::filesystem::path& folder);

// Applies the change to the present state under the exclusive lock, and writes the state unless the change returns false.
void changeToken(const std::filesystem::path& folder, const std::function<bool(StoredToken&)>& change);

// Throws TokenError if a token exists, unless `overwrite` is set.
void createToken(const std::filesystem::path& folder, const StoredToken& state, bool overwrite);

} // namespace quelta::softtoken
