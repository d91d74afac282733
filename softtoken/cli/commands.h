// What each command of quelta-token does, apart from how its command line is written. All throw TokenError.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quelta::softtoken::cli {

using Folder = std::filesystem::path;

struct InitOptions {
    std::string pin;
    int attempts = 10;
    bool force = false;
};
void init(const Folder& folder, const InitOptions& options);

void setPlugged(const Folder& folder, bool plugged);
// "on", "off", "expire".
void singleSignOn(const Folder& folder, const std::string& action);
// "ok", "mismatch".
void clock(const Folder& folder, const std::string& action);

void pinChange(const Folder& folder, const std::string& newPin);
void pinUnlock(const Folder& folder);
void pinLock(const Folder& folder);

struct KeygenOptions {
    std::string type = "rsa2048";
    std::string usage;
    std::string label;
};
void keygen(const Folder& folder, const KeygenOptions& options);

struct ImportOptions {
    std::vector<std::string> files;
    std::string aes;
    std::string label;
};
void importItems(const Folder& folder, const ImportOptions& options);

struct CertificateOptions {
    std::string key;
    std::string subject;
    std::string exported; // "leaf", "issuing", "root"; empty to make a new chain
    std::string out;
};
void certificate(const Folder& folder, const CertificateOptions& options);

void publicKey(const Folder& folder, const std::string& key, const std::string& out);
void remove(const Folder& folder, const std::string& name);
void list(const Folder& folder, bool json);

} // namespace quelta::softtoken::cli
