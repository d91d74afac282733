// The commands of quelta-token. `main` parses the command line. All commands throw TokenError.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quelta::softtoken::cli {

// The parsed command line. Each command reads its own members.
struct CommandLine {
    std::filesystem::path folder;
    std::string pin;
    int attempts = 10;
    bool force = false;
    std::string action; // sso: "on", "off", "expire"; clock: "ok", "mismatch"
    std::string type = "rsa2048";
    std::string usage;
    std::string label;
    std::vector<std::string> files;
    std::string aes;
    std::string name; // selects a key, or the item to delete
    std::string subject;
    std::string exported; // "leaf", "issuing", "root"; empty to make a new chain
    std::string out;
    bool json = false;
};

void init(const CommandLine& given);
void plug(const CommandLine& given);
void unplug(const CommandLine& given);
void singleSignOn(const CommandLine& given);
void clock(const CommandLine& given);
void pinChange(const CommandLine& given);
void pinUnlock(const CommandLine& given);
void pinLock(const CommandLine& given);

void keygen(const CommandLine& given);
void importItems(const CommandLine& given);
void publicKey(const CommandLine& given);
void remove(const CommandLine& given);
void certificate(const CommandLine& given);
void list(const CommandLine& given);

} // namespace quelta::softtoken::cli
