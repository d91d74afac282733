// The command line of quelta-token: names, help and exit codes. What the commands do is in the files beside.
#include "cli/commands.h"
#include "common/text.h"
#include "store/token_store.h"
#include "version.h"

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <windows.h>

#include <shellapi.h>

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace quelta::softtoken {

namespace {

constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

constexpr const char* description =
    "Makes and drives a software token: what QueltaDSCLibrary.dll shows in place of a device.\n"
    "IT PROTECTS NOTHING. The keys stand in clear in the token's folder: for development and demonstration only.";

constexpr const char* closing =
    "The token is a folder: --dir, else the environment's QUELTA_TOKEN_DIR, else one under the user's local\n"
    "application data. Applications see every change at once.\n"
    "KEY is a key's identifier, the beginning of it, or its label; with a single key pair it can be left away.\n"
    "Exit codes: 0 done, 1 failed (one line on the standard error says why), 2 wrong command line.\n"
    "Example: quelta-token init --pin 1234 && quelta-token keygen --type rsa2048 && quelta-token cert";

const std::vector<std::string> usageNames{"sign", "exchange", "both"};

// Runs after the whole command line has been read, so that a mistake at its end does nothing by half.
struct CommandLine {
    std::string folder;
    std::function<void(const cli::Folder&)> work;

    cli::InitOptions init;
    cli::KeygenOptions keygen;
    cli::ImportOptions imported;
    cli::CertificateOptions certificate;
    std::string name;
    std::string out;
    std::string newPin;
    std::string action;
    bool json = false;
};

using Work = void (*)(const CommandLine&, const cli::Folder&);

CLI::App* addCommand(CLI::App& app, CommandLine& line, const char* name, const char* help, const char* example, Work work)
{
    CLI::App* command = app.add_subcommand(name, help);
    command->footer(std::string("Example: quelta-token ") + example);
    command->fallthrough();
    command->callback([&line, work] { line.work = [&line, work](const cli::Folder& folder) { work(line, folder); }; });
    return command;
}

void addTokenCommands(CLI::App& app, CommandLine& line)
{
    CLI::App* init = addCommand(app, line, "init", "Make a token in the folder; prints its identifier", "init --pin 1234",
                                [](const CommandLine& given, const cli::Folder& folder) { cli::init(folder, given.init); });
    init->add_option("--pin", line.init.pin, "The PIN, 4 to 63 ASCII characters")->required();
    init->add_option("--attempts", line.init.attempts, "Wrong PINs until it locks")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    init->add_flag("--force", line.init.force, "Throw away the token that is there");

    addCommand(app, line, "unplug", "Take the token out: applications see none", "unplug",
               [](const CommandLine&, const cli::Folder& folder) { cli::setPlugged(folder, false); });
    addCommand(app, line, "plug", "Put the token back", "plug",
               [](const CommandLine&, const cli::Folder& folder) { cli::setPlugged(folder, true); });

    CLI::App* sso =
        addCommand(app, line, "sso", "Single sign-on: an open session needs no PIN, an expired one answers 49", "sso expire",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::singleSignOn(folder, given.action); });
    sso->add_option("ACTION", line.action, "on, off or expire")->required()->check(CLI::IsMember({"on", "off", "expire"}));

    CLI::App* clock =
        addCommand(app, line, "clock", "The token's clock: a mismatch makes the PIN check answer 48", "clock mismatch",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::clock(folder, given.action); });
    clock->add_option("STATE", line.action, "ok or mismatch")->required()->check(CLI::IsMember({"ok", "mismatch"}));
}

void addPinCommands(CLI::App& app, CommandLine& line)
{
    CLI::App* pin = app.add_subcommand("pin", "The PIN and its attempts");
    pin->require_subcommand(1)->fallthrough();
    pin->footer("Example: quelta-token pin unlock");
    CLI::App* change =
        addCommand(*pin, line, "change", "Set another PIN, with all attempts", "pin change --new 5678",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::pinChange(folder, given.newPin); });
    change->add_option("--new", line.newPin, "The PIN, 4 to 63 ASCII characters")->required();
    addCommand(*pin, line, "unlock", "Give all attempts back", "pin unlock",
               [](const CommandLine&, const cli::Folder& folder) { cli::pinUnlock(folder); });
    addCommand(*pin, line, "lock", "Take all attempts away", "pin lock",
               [](const CommandLine&, const cli::Folder& folder) { cli::pinLock(folder); });
}

void addKeyCommands(CLI::App& app, CommandLine& line)
{
    CLI::App* keygen = addCommand(app, line, "keygen", "Make a key; prints its identifier", "keygen --type p256 --label signer",
                                  [](const CommandLine& given, const cli::Folder& folder) { cli::keygen(folder, given.keygen); });
    keygen->add_option("--type", line.keygen.type, "The kind of key")
        ->check(CLI::IsMember({"rsa1024", "rsa2048", "rsa3072", "rsa4096", "p256", "p384", "p521", "aes128", "aes256"}))
        ->capture_default_str();
    keygen->add_option("--usage", line.keygen.usage, "What a key pair is for (RSA: both, else sign)")
        ->check(CLI::IsMember(usageNames));
    keygen->add_option("--label", line.keygen.label, "The key's label");

    CLI::App* importing =
        addCommand(app, line, "import", "Store keys and certificates; prints the keys' identifiers",
                   "import key.pem certificate.pem --label signer",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::importItems(folder, given.imported); });
    CLI::Option* files =
        importing->add_option("FILES", line.imported.files, "PEM or DER files; issuers' certificates may be among them");
    importing->add_option("--aes", line.imported.aes, "An AES key as hexadecimal digits, in place of files")->excludes(files);
    importing->add_option("--label", line.imported.label, "The key's label");

    CLI::App* publicKey =
        addCommand(app, line, "pubkey", "Write a key pair's public key as PEM", "pubkey signer --out signer.pem",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::publicKey(folder, given.name, given.out); });
    publicKey->add_option("KEY", line.name, "The key pair");
    publicKey->add_option("--out", line.out, "The file (standard output)");

    CLI::App* remove =
        addCommand(app, line, "delete", "Delete a key with its certificates, or a certificate by its thumbprint", "delete signer",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::remove(folder, given.name); });
    remove->add_option("NAME", line.name, "Identifier, label or thumbprint")->required();
}

void addCertificateCommand(CLI::App& app, CommandLine& line)
{
    CLI::App* command =
        addCommand(app, line, "cert", "Make a certificate chain for a key pair, or write it as PEM",
                   "cert signer --subject \"CN=Ada, O=Example\"\n         quelta-token cert signer --export root --out root.pem",
                   [](const CommandLine& given, const cli::Folder& folder) { cli::certificate(folder, given.certificate); });
    cli::CertificateOptions& options = line.certificate;
    command->add_option("KEY", options.key, "The key pair");
    CLI::Option* exported =
        command->add_option("--export", options.exported, "Write this part of the chain instead of making one")
            ->check(CLI::IsMember({"leaf", "issuing", "root"}));
    command->add_option("--out", options.out, "The file to write it to (standard output)")->needs(exported);
    command->add_option("--subject", options.subject, "The holder's name, like 'CN=Ada, O=\"Example, Inc\"'")->excludes(exported);
}

void addListCommand(CLI::App& app, CommandLine& line)
{
    CLI::App* command = addCommand(app, line, "list", "Show what the token holds and its state", "list --json",
                                   [](const CommandLine& given, const cli::Folder& folder) { cli::list(folder, given.json); });
    command->add_flag("--json", line.json, "As JSON");
}

void describe(CLI::App& app, CommandLine& line)
{
    app.name("quelta-token");
    app.footer(closing);
    // A path may begin with a slash.
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", std::string("quelta-token ") + quelta::version + " (software token: protects nothing)");
    app.add_option("--dir", line.folder, "The token's folder");
    app.require_subcommand(1);
    addTokenCommands(app, line);
    addPinCommands(app, line);
    addKeyCommands(app, line);
    addCertificateCommand(app, line);
    addListCommand(app, line);
}

int complain(std::string message, int code)
{
    std::ranges::replace(message, '\n', ' ');
    std::cerr << "quelta-token: " << message << '\n';
    return code;
}

int run(int count, char** arguments)
{
    CLI::App app(description);
    CommandLine line;
    describe(app, line);
    try {
        app.parse(count, arguments);
        line.work(line.folder.empty() ? tokenFolder() : pathFrom(line.folder));
        std::cout.flush();
        return std::cout ? 0 : complain("can't write to the standard output", exitFailed);
    } catch (const CLI::RequiredError& error) {
        const bool unknownCommand = app.get_subcommands().empty() && count > 1;
        return complain((unknownCommand ? "no such command" : std::string(error.what())) + "; see: quelta-token --help",
                        exitUsage);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return complain(std::string(error.what()) + "; see: quelta-token --help", exitUsage);
    } catch (const std::exception& error) {
        return complain(error.what(), exitFailed);
    }
}

struct FreeLocal {
    void operator()(wchar_t** block) const { LocalFree(block); }
};

// The program's own arguments are in the system's code page, which need not have the characters of a name.
std::vector<std::string> argumentsInUtf8()
{
    int count = 0;
    const std::unique_ptr<wchar_t*, FreeLocal> wide(CommandLineToArgvW(GetCommandLineW(), &count));
    std::vector<std::string> arguments;
    for (int i = 0; i < count; ++i) arguments.push_back(toUtf8(wide.get()[i]));
    return arguments;
}

} // namespace

} // namespace quelta::softtoken

int main()
{
    // Scripts read the output: no carriage returns.
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    std::vector<std::string> arguments = quelta::softtoken::argumentsInUtf8();
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    return quelta::softtoken::run(static_cast<int>(pointers.size()), pointers.data());
}
