// What each command of quelta-token does, apart from how its command line is written. All throw TokenError.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace quelta::softtoken::cli {

// The command line as it was given. Each command reads what belongs to it.
struct CommandLine {
    std::filesystem::path folder;
    std::string pin;
    int attempts = 10;
    bool force = false;
    std::string action; // of sso: "on", "off", "expire"; of clock: "ok", "mismatch"
    std::string type = "rsa2048";
    std::string usage;
    std::string label;
    std::vector<std::string> files;
    std::string aes;
    std::string name; // of a key, or of what is to be deleted
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
