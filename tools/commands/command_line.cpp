#include "tools/commands/command_line.h"

#include "common/bcrypt_calls.h"
#include "tools/check/check.h"
#include "tools/commands/file_commands.h"
#include "tools/commands/list.h"
#include "tools/commands/publish.h"
#include "tools/commands/verify.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/text.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <new>
#include <sstream>

namespace quelta::tools {

namespace {

// What is common to all commands.
struct Run {
    bool json = false;
    Outcome outcome;
};

std::string interfaceOf(std::string text)
{
    if (text != "csp" && text != "ksp")
        throw CLI::ValidationError("--provider is csp (CryptoAPI) or ksp (key storage), and not " + text);
    return text;
}

void addProvider(CLI::App& command, std::optional<Interface>& provider)
{
    command
        .add_option_function<std::string>(
            "--provider",
            [&](const std::string& name) { provider = interfaceOf(name) == "ksp" ? Interface::ksp : Interface::csp; },
            "The interface: csp (CryptoAPI) or ksp (key storage); default: csp, and ksp if csp can't do it")
        ->option_text("csp|ksp");
}

void addKey(CLI::App& command, std::string& key)
{
    command
        .add_option(
            "--key", key,
            "The key: its number in the list, its identifier or the beginning of it, the holder, or a part of the subject "
            "that no other has (default: the first that will do)")
        ->option_text("KEY");
}

void addPin(CLI::App& command, PinSource& pin)
{
    auto* given = command.add_option("--pin", pin.given, "The token's PIN, for tests: others see it in the list of processes");
    given->option_text("PIN");
    command.add_flag("--pin-stdin", pin.fromInput, "The PIN is the first line of standard input")->excludes(given);
}

void addTokenOptions(CLI::App& command, TokenOptions& options)
{
    addProvider(command, options.provider);
    addKey(command, options.key);
}

CLI::App& addCommand(CLI::App& app, Run& run, const char* name, const char* description, const char* example)
{
    CLI::App& command = *app.add_subcommand(name, description)->group("Commands");
    command.add_flag("--json", run.json, "Print JSON");
    command.footer(std::string("Example:\n  quelta ") + example);
    return command;
}

void addOutput(CLI::App& command, std::string& output, const char* description)
{
    command.add_option("-o,--output", output, description)->option_text("FILE");
}

CLI::Option& addFile(CLI::App& command, const char* name, std::string& file, const char* description)
{
    return *command.add_option(name, file, description)->required()->option_text(" ");
}

void addList(CLI::App& app, Run& run)
{
    CLI::App& command = addCommand(app, run, "list", "List the token's keys and their uses", "list");
    command.callback([&run] { run.outcome = list(); });
}

void addSign(CLI::App& app, Run& run)
{
    CLI::App& command =
        addCommand(app, run, "sign", "Sign files with a key on the token (CMS)", "sign contract.pdf annex.pdf --key Ada");
    auto options = std::make_shared<SignOptions>();
    command.add_option("FILE", options->files, "The files to sign; - is standard input")->required()->option_text("...");
    addOutput(command, options->output, "The signature (default: FILE.p7s, with --attached FILE.p7m); - is standard output");
    addTokenOptions(command, options->token);
    addPin(command, options->token.pin);
    command.add_option("--hash", options->hash, "sha256 (the default), sha384, sha512 or sha1")
        ->check(CLI::IsMember({"sha256", "sha384", "sha512", "sha1"}))
        ->option_text("NAME");
    command.add_flag("--attached", options->attached, "Put the content into the signature");
    command.add_flag("--add", options->add, "Add to the signature that is there, of the same file");
    command.add_flag("--force", options->force, "Sign though the certificate is out of date or not for signatures");
    command.callback([&run, options] { run.outcome = sign(*options); });
}

void addVerify(CLI::App& app, Run& run)
{
    CLI::App& command = addCommand(app, run, "verify", "Check a signature and show who signed",
                                   "verify contract.pdf.p7s contract.pdf --root root.pem");
    auto options = std::make_shared<VerifyOptions>();
    addFile(command, "SIGNATURE", options->signature, "The signature in DER, or in PEM if FILE is given; - is standard input");
    addFile(command, "FILE", options->file, "The file that was signed (default: it is within the signature)").required(false);
    addOutput(command, options->output,
              "The file for the content that is within the signature; - is standard output, which gets it before the signature "
              "was checked");
    command
        .add_option("--root", options->roots,
                    "Root certificates, PEM or DER, to one of which the signer's must lead; may be given several times (default: "
                    "those that Windows trusts)")
        ->allow_extra_args(false)
        ->option_text("FILE");
    command
        .add_option("--at", options->at,
                    "Judge the certificates for this time, as 2026-11-25 or 2026-11-25T10:00:00Z (default: now)")
        ->option_text("TIME");
    command.callback([&run, options] { run.outcome = verify(*options); });
}

void addEncrypt(CLI::App& app, Run& run)
{
    CLI::App& command = addCommand(app, run, "encrypt", "Encrypt a file for the holder of a certificate (CMS, AES-256)",
                                   "encrypt letter.txt -o letter.txt.p7m --cert recipient.pem");
    auto options = std::make_shared<EncryptOptions>();
    addFile(command, "FILE", options->file, "The file to encrypt; - is standard input");
    addOutput(command, options->output, "The message (default: FILE.p7m); - is standard output");
    command.add_option("--cert", options->certificate, "The recipient's certificate, PEM or DER (default: the token's own)")
        ->option_text("FILE");
    addTokenOptions(command, options->token);
    command.add_flag("--force", options->force, "Encrypt though the certificate is out of date or not for encryption");
    command.callback([&run, options] { run.outcome = encrypt(*options); });
}

void addDecrypt(CLI::App& app, Run& run)
{
    CLI::App& command =
        addCommand(app, run, "decrypt", "Decrypt a CMS message with a key on the token", "decrypt letter.txt.p7m -o letter.txt");
    auto options = std::make_shared<DecryptOptions>();
    addFile(command, "FILE", options->file, "The message; - is standard input");
    command
        .add_option("-o,--output", options->output,
                    "The decrypted file; - is standard output, which gets the beginning before the end was checked")
        ->required()
        ->option_text("FILE");
    addTokenOptions(command, options->token);
    addPin(command, options->token.pin);
    command.callback([&run, options] { run.outcome = decrypt(*options); });
}

void addPublish(CLI::App& app, Run& run)
{
    CLI::App& command =
        addCommand(app, run, "publish",
                   "Put the token's certificates into the user's store \"My\", where applications look for them", "publish");
    auto watch = std::make_shared<bool>();
    command
        .add_flag("--watch", *watch, "Wait for tokens: publish when one is plugged in, unpublish when it is pulled, until Ctrl-C")
        ->excludes(command.get_option("--json"));
    command.callback([&run, watch] { run.outcome = publish(*watch); });
}

void addUnpublish(CLI::App& app, Run& run)
{
    CLI::App& command =
        addCommand(app, run, "unpublish", "Remove the certificates that publish put there, and nothing else", "unpublish");
    command.callback([&run] { run.outcome = unpublish(); });
}

void addCheck(CLI::App& app, Run& run)
{
    CLI::App& command = addCommand(
        app, run, "check", "Check installation, token and certificates, and say how to mend what is wrong; changes nothing",
        "check --report report.txt");
    auto options = std::make_shared<CheckOptions>();
    command
        .add_option("--report", options->report,
                    "Also write the result, and the last errors of the logs, into this file; it holds no secrets")
        ->option_text("FILE");
    auto* dialog = command.add_flag("--pin-dialog", options->withPin, "Sign as well; the provider's dialog asks for the PIN");
    addPin(command, options->pin);
    for (const char* other : {"--pin", "--pin-stdin"}) dialog->excludes(command.get_option(other));
    command.add_flag("--installation", options->installationOnly, "Check the installation alone, without a token");
    command.callback([&run, options] {
        options->withPin |= !options->pin.isDialog();
        options->json = run.json;
        run.outcome = check(*options);
    });
}

std::string inOneLine(std::string text)
{
    std::ranges::replace(text, '\n', ' ');
    return text;
}

bool hasCommand(const CLI::App& app, const std::string& name)
{
    const auto commands = app.get_subcommands([](const CLI::App*) { return true; });
    return std::ranges::any_of(commands, [&](const CLI::App* command) { return command->get_name() == name; });
}

int refuseUsage(const std::string& what, const std::string& command = "")
{
    complain("quelta: " + what + "; see quelta" + command + " --help");
    return exitUsage;
}

int refuseUsage(const CLI::App& app, const CLI::ParseError& error)
{
    const auto chosen = app.get_subcommands();
    return refuseUsage(inOneLine(error.what()), chosen.empty() ? "" : " " + chosen.front()->get_name());
}

// CLI11 breaks no lines.
int show(const std::string& text)
{
    constexpr std::size_t width = 79;
    std::istringstream lines(text.substr(0, text.find_last_not_of('\n') + 1));
    for (std::string line; std::getline(lines, line);) printLine(wrapped(line, width));
    return exitDone;
}

int tell(const Run& run)
{
    if (run.json)
        printLine(run.outcome.json.dump(2));
    else
        for (const std::string& line : run.outcome.lines) printLine(line);
    return run.outcome.status;
}

// As JSON as well, so that a program reads the same from a failure as from a success.
int refuse(const Run& run, const Json& json, const std::string& line)
{
    complain("quelta: " + line);
    if (run.json) tryPrintLine(json.dump(2));
    return exitFailed;
}

} // namespace

int runCommandLine(std::vector<std::string> arguments)
{
    CLI::App app("Lists the keys on a Quelta token, and signs, verifies, encrypts and decrypts files with them", "quelta");
    app.set_version_flag("--version", std::string("quelta ") + version);
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    // A path may begin with a slash; the subcommands inherit this.
    app.allow_windows_style_options(false);
    app.footer(
        "quelta COMMAND --help tells more. Exit status: 0 done, 1 failed or refused, 2 wrong usage; verify also answers 3: "
        "the signature is good, but this system does not trust the signer's root and --root names none.");
    Run run;
    for (const auto add : {addList, addSign, addVerify, addEncrypt, addDecrypt, addPublish, addUnpublish, addCheck})
        add(app, run);
    if (!arguments.empty() && !arguments.front().starts_with('-') && !hasCommand(app, arguments.front()))
        return refuseUsage("there is no command " + arguments.front());
    try {
        // CLI11 takes a vector from its back.
        std::ranges::reverse(arguments);
        app.parse(arguments);
        if (app.get_subcommands().empty()) return refuseUsage("a command is missing");
        return tell(run);
    } catch (const CLI::CallForHelp&) {
        return show(app.help());
    } catch (const CLI::CallForVersion& asked) {
        return show(asked.what());
    } catch (const CLI::ParseError& error) {
        return refuseUsage(app, error);
    } catch (const Refusal& refusal) {
        return refuse(run, {{"good", false}, {"error", refusal.what()}}, std::string("NOT VALID: ") + refusal.what());
    } catch (const Failure& failure) {
        return refuse(run, {{"error", failure.what()}}, failure.what());
    } catch (const BcryptError& error) {
        const std::string text = std::string(error.what()) + ": bcrypt.dll answers " + std::to_string(error.status());
        return refuse(run, {{"error", text}}, text);
    } catch (const std::bad_alloc&) {
        return refuse(run, {{"error", "out of memory"}}, "out of memory; close other programs and try again");
    } catch (const std::exception& error) {
        return refuse(run, {{"error", error.what()}}, std::string("unexpected: ") + error.what());
    }
}

} // namespace quelta::tools
