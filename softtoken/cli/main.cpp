// The command line of quelta-token: names, help and exit codes. The files beside this one carry out the commands.
#include "cli/commands.h"
#include "common/bcrypt_calls.h"
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

using cli::CommandLine;
using Work = void (*)(const CommandLine&);

class Commands {
public:
    explicit Commands(CLI::App& app);

    CommandLine given;
    std::string folder;
    // Runs after the whole command line was parsed, so that a mistake at its end leaves nothing half done.
    Work work = nullptr;

private:
    CLI::App* add(CLI::App& parent, const char* name, const char* help, const char* example, Work command);
    void addTokenCommands(CLI::App& app);
    void addPinCommands(CLI::App& app);
    void addKeyCommands(CLI::App& app);
    void addCertificateCommands(CLI::App& app);
};

Commands::Commands(CLI::App& app)
{
    app.name("quelta-token");
    app.footer(closing);
    // Windows' form of options is off, since a path may begin with a slash.
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", std::string("quelta-token ") + quelta::version + " (software token: protects nothing)");
    app.add_option("--dir", folder, "The token's folder");
    app.require_subcommand(1);
    addTokenCommands(app);
    addPinCommands(app);
    addKeyCommands(app);
    addCertificateCommands(app);
    CLI::App* list = add(app, "list", "Show what the token holds and its state", "list --json", cli::list);
    list->add_flag("--json", given.json, "As JSON");
}

CLI::App* Commands::add(CLI::App& parent, const char* name, const char* help, const char* example, Work command)
{
    CLI::App* added = parent.add_subcommand(name, help);
    added->footer(std::string("Example: quelta-token ") + example);
    added->fallthrough();
    added->callback([this, command] { work = command; });
    return added;
}

void Commands::addTokenCommands(CLI::App& app)
{
    CLI::App* init = add(app, "init", "Make a token in the folder; prints its identifier", "init --pin 1234", cli::init);
    init->add_option("--pin", given.pin, "The PIN, 4 to 63 ASCII characters")->required();
    init->add_option("--attempts", given.attempts, "Wrong PINs until it locks")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    init->add_flag("--force", given.force, "Throw away the token that is there");

    add(app, "unplug", "Take the token out: applications see none", "unplug", cli::unplug);
    add(app, "plug", "Put the token back", "plug", cli::plug);

    add(app, "sso", "Single sign-on: an open session needs no PIN, an expired one answers 49", "sso expire", cli::singleSignOn)
        ->add_option("ACTION", given.action, "on, off or expire")
        ->required()
        ->check(CLI::IsMember({"on", "off", "expire"}));
    add(app, "clock", "The token's clock: a mismatch makes the PIN check answer 48", "clock mismatch", cli::clock)
        ->add_option("STATE", given.action, "ok or mismatch")
        ->required()
        ->check(CLI::IsMember({"ok", "mismatch"}));
}

void Commands::addPinCommands(CLI::App& app)
{
    CLI::App* pin = app.add_subcommand("pin", "The PIN and its attempts");
    pin->require_subcommand(1)->fallthrough();
    pin->footer("Example: quelta-token pin unlock");
    add(*pin, "change", "Set another PIN, with all attempts", "pin change --new 5678", cli::pinChange)
        ->add_option("--new", given.pin, "The PIN, 4 to 63 ASCII characters")
        ->required();
    add(*pin, "unlock", "Give all attempts back", "pin unlock", cli::pinUnlock);
    add(*pin, "lock", "Take all attempts away", "pin lock", cli::pinLock);
}

void Commands::addKeyCommands(CLI::App& app)
{
    CLI::App* keygen = add(app, "keygen", "Make a key; prints its identifier", "keygen --type p256 --label signer", cli::keygen);
    keygen->add_option("--type", given.type, "The kind of key")
        ->check(CLI::IsMember({"rsa1024", "rsa2048", "rsa3072", "rsa4096", "p256", "p384", "p521", "aes128", "aes256"}))
        ->capture_default_str();
    keygen->add_option("--usage", given.usage, "What a key pair is for (RSA: both, else sign)")
        ->check(CLI::IsMember({"sign", "exchange", "both"}));
    keygen->add_option("--label", given.label, "The key's label");

    CLI::App* importing = add(app, "import", "Store keys and certificates; prints the keys' identifiers",
                              "import key.pem certificate.pem --label signer", cli::importItems);
    CLI::Option* files = importing->add_option("FILES", given.files, "PEM or DER files; issuers' certificates may be among them");
    importing->add_option("--aes", given.aes, "An AES key as hexadecimal digits, in place of files")->excludes(files);
    importing->add_option("--label", given.label, "The key's label");

    CLI::App* publicKey =
        add(app, "pubkey", "Write a key pair's public key as PEM", "pubkey signer --out signer.pem", cli::publicKey);
    publicKey->add_option("KEY", given.name, "The key pair");
    publicKey->add_option("--out", given.out, "The file (standard output)");

    add(app, "delete", "Delete a key with its certificates, or a certificate by its thumbprint", "delete signer", cli::remove)
        ->add_option("NAME", given.name, "Identifier, label or thumbprint")
        ->required();
}

void Commands::addCertificateCommands(CLI::App& app)
{
    CLI::App* command =
        add(app, "cert", "Make a certificate chain for a key pair, or write it as PEM",
            "cert signer --subject \"CN=Ada, O=Example\"\n         quelta-token cert signer --export root --out root.pem",
            cli::certificate);
    command->add_option("KEY", given.name, "The key pair");
    CLI::Option* exported = command->add_option("--export", given.exported, "Write this part of the chain instead of making one")
                                ->check(CLI::IsMember({"leaf", "issuing", "root"}));
    command->add_option("--out", given.out, "The file to write it to (standard output)")->needs(exported);
    command->add_option("--subject", given.subject, "The holder's name, like 'CN=Ada, O=\"Example, Inc\"'")->excludes(exported);
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
    Commands commands(app);
    try {
        app.parse(count, arguments);
        commands.given.folder = commands.folder.empty() ? tokenFolder() : pathFrom(commands.folder);
        commands.work(commands.given);
        std::cout.flush();
        return std::cout ? 0 : complain("can't write to the standard output", exitFailed);
    } catch (const CLI::RequiredError& error) {
        const bool unknownCommand = app.get_subcommands().empty() && count > 1;
        return complain((unknownCommand ? "no such command" : std::string(error.what())) + "; see: quelta-token --help",
                        exitUsage);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        return complain(std::string(error.what()) + "; see: quelta-token --help", exitUsage);
    } catch (const BcryptError& error) {
        return complain(std::string(error.what()) + ": the system refused, status " + std::to_string(error.status()), exitFailed);
    } catch (const std::exception& error) {
        return complain(error.what(), exitFailed);
    }
}

struct FreeLocal {
    void operator()(wchar_t** block) const { LocalFree(block); }
};

// Converts the wide command line. The arguments of `main` are in the system's code page, which may lack characters of a name.
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
    // Scripts read the output, so lines end without a carriage return.
    _setmode(_fileno(stdout), _O_BINARY);
    SetConsoleOutputCP(CP_UTF8);
    std::vector<std::string> arguments = quelta::softtoken::argumentsInUtf8();
    std::vector<char*> pointers;
    for (std::string& argument : arguments) pointers.push_back(argument.data());
    return quelta::softtoken::run(static_cast<int>(pointers.size()), pointers.data());
}
