#include "common/text.h"
#include "tools/commands/commands.h"
#include "tools/console/console.h"
#include "tools/console/failure.h"
#include "tools/console/files.h"
#include "tools/console/provider_log.h"
#include "tools/console/text.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <new>
#include <sstream>

namespace quelta::tools {

namespace {

// The state that all commands share.
struct Run {
    bool json = false;
    Outcome outcome;
};

// Returns the command and its options, with which `act` is called if the user asks for the command.
template <class Options, class Act>
std::pair<CLI::App&, Options&> addCommand(CLI::App& app, Run& run, Act act, const char* name, const char* description,
                                          const char* example)
{
    CLI::App& command = *app.add_subcommand(name, description)->group("Commands");
    command.add_flag("--json", run.json, "Print JSON");
    command.footer(std::string("Example:\n  quelta ") + example);
    auto options = std::make_shared<Options>();
    command.callback([&run, act, options] { run.outcome = act(*options); });
    return {command, *options};
}

CLI::Option& addOption(CLI::App& command, const char* name, auto& value, const char* valueName, const char* description)
{
    return *command.add_option(name, value, description)->option_text(valueName);
}

void addToken(CLI::App& command, TokenOptions& token)
{
    const auto setProvider = [&](const std::string& name) {
        if (name != "csp" && name != "ksp")
            throw CLI::ValidationError("--provider is csp (CryptoAPI) or ksp (key storage), and not " + name);
        token.provider = name == "ksp" ? Interface::ksp : Interface::csp;
    };
    command
        .add_option_function<std::string>("--provider", setProvider,
                                          "The interface: csp (CryptoAPI) or ksp (key storage); default: csp, and ksp if csp "
                                          "can't do it")
        ->option_text("csp|ksp");
    addOption(command, "--key", token.key, "KEY",
              "The key: its number in the list, its identifier or the beginning of it, the holder, or a part of the subject that "
              "no other has (default: the first that will do)");
}

void addPin(CLI::App& command, PinSource& pin)
{
    auto& given =
        addOption(command, "--pin", pin.given, "PIN", "The token's PIN, for tests: others see it in the list of processes");
    command.add_flag("--pin-stdin", pin.fromInput, "The PIN is the first line of standard input")->excludes(&given);
}

void addList(CLI::App& app, Run& run)
{
    addCommand<bool>(
        app, run, [](bool) { return list(); }, "list", "List the token's keys and their uses", "list");
}

void addSign(CLI::App& app, Run& run)
{
    auto [command, options] = addCommand<SignOptions>(app, run, sign, "sign", "Sign files with a key on the token (CMS)",
                                                      "sign contract.pdf annex.pdf --key Ada");
    addOption(command, "FILE", options.files, "...", "The files to sign; - is standard input").required();
    addOption(command, "-o,--output", options.output, "FILE",
              "The signature (default: FILE.p7s, with --attached FILE.p7m); - is standard output");
    addToken(command, options.token);
    addPin(command, options.token.pin);
    addOption(command, "--hash", options.hash, "NAME", "sha256 (the default), sha384, sha512 or sha1")
        .check(CLI::IsMember({"sha256", "sha384", "sha512", "sha1"}));
    command.add_flag("--attached", options.attached, "Put the content into the signature");
    command.add_flag("--add", options.add, "Add to the signature that is there, of the same file");
    command.add_flag("--force", options.force, "Sign though the certificate is out of date or not for signatures");
}

void addVerify(CLI::App& app, Run& run)
{
    auto [command, options] = addCommand<VerifyOptions>(app, run, verify, "verify", "Check a signature and show who signed",
                                                        "verify contract.pdf.p7s contract.pdf --root root.pem");
    addOption(command, "SIGNATURE", options.signature, " ",
              "The signature in DER, or in PEM if FILE is given; - is standard input")
        .required();
    addOption(command, "FILE", options.file, " ", "The file that was signed (default: it is within the signature)");
    addOption(command, "-o,--output", options.output, "FILE",
              "The file for the content that is within the signature; - is standard output, which gets it before the signature "
              "was checked");
    addOption(command, "--root", options.roots, "FILE",
              "Root certificates, PEM or DER, to one of which the signer's must lead; may be given several times (default: those "
              "that Windows trusts)")
        .allow_extra_args(false);
    addOption(command, "--at", options.at, "TIME",
              "Judge the certificates for this time, as 2026-11-25 or 2026-11-25T10:00:00Z (default: now)");
}

void addEncrypt(CLI::App& app, Run& run)
{
    auto [command, options] =
        addCommand<EncryptOptions>(app, run, encrypt, "encrypt", "Encrypt a file for the holder of a certificate (CMS, AES-256)",
                                   "encrypt letter.txt -o letter.txt.p7m --cert recipient.pem");
    addOption(command, "FILE", options.file, " ", "The file to encrypt; - is standard input").required();
    addOption(command, "-o,--output", options.output, "FILE", "The message (default: FILE.p7m); - is standard output");
    addOption(command, "--cert", options.certificate, "FILE",
              "The recipient's certificate, PEM or DER (default: the token's own)");
    addToken(command, options.token);
    command.add_flag("--force", options.force, "Encrypt though the certificate is out of date or not for encryption");
}

void addDecrypt(CLI::App& app, Run& run)
{
    auto [command, options] = addCommand<DecryptOptions>(
        app, run, decrypt, "decrypt", "Decrypt a CMS message with a key on the token", "decrypt letter.txt.p7m -o letter.txt");
    addOption(command, "FILE", options.file, " ", "The message; - is standard input").required();
    addOption(command, "-o,--output", options.output, "FILE",
              "The decrypted file; - is standard output, which gets the beginning before the end was checked")
        .required();
    addToken(command, options.token);
    addPin(command, options.token.pin);
}

void addPublish(CLI::App& app, Run& run)
{
    auto [command, watch] = addCommand<bool>(
        app, run, publish, "publish",
        "Put the token's certificates into the user's store \"My\", where applications look for them", "publish");
    command
        .add_flag("--watch", watch, "Wait for tokens: publish when one is plugged in, unpublish when it is pulled, until Ctrl-C")
        ->excludes(command.get_option("--json"));
}

void addUnpublish(CLI::App& app, Run& run)
{
    addCommand<bool>(
        app, run, [](bool) { return unpublish(); }, "unpublish",
        "Remove the certificates that publish put there, and nothing else", "unpublish");
}

void addCheck(CLI::App& app, Run& run)
{
    const auto checkAll = [&run](CheckOptions& options) {
        options.withPin |= !options.pin.isDialog();
        options.json = run.json;
        return check(options);
    };
    auto [command, options] = addCommand<CheckOptions>(
        app, run, checkAll, "check", "Check installation, token and certificates, and say how to mend what is wrong",
        "check --report report.txt");
    addOption(command, "--report", options.report, "FILE",
              "Also write the result, and the last errors of the logs, into this file; it holds no secrets");
    auto* dialog = command.add_flag("--pin-dialog", options.withPin, "Sign as well; the provider's dialog asks for the PIN");
    addPin(command, options.pin);
    for (const char* other : {"--pin", "--pin-stdin"}) dialog->excludes(command.get_option(other));
    command.add_flag("--installation", options.installationOnly, "Check the installation alone, without a token");
}

std::string inOneLine(std::string text)
{
    std::ranges::replace(text, '\n', ' ');
    return text;
}

bool hasCommand(const CLI::App& app, const std::string& name)
{
    return !app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; }).empty();
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

// Prints a failure, with --json as JSON.
int refuse(const Run& run, const std::string& start, const std::string& error, Json json = Json::object())
{
    complain("quelta: " + start + error);
    json["error"] = error;
    if (run.json) tryPrintLine(json.dump(2));
    return exitFailed;
}

// Runs the command that the arguments (UTF-8, without the program's name) ask for and returns the process's exit code.
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
        return refuse(run, "NOT VALID: ", refusal.what(), {{"good", false}});
    } catch (const Failure& failure) {
        return refuse(run, "", failure.what());
    } catch (const BcryptError& error) {
        return refuse(run, "", std::string(error.what()) + ": bcrypt.dll answers " + std::to_string(error.status()));
    } catch (const std::bad_alloc&) {
        return refuse(run, "", "out of memory; close other programs and try again");
    } catch (const std::exception& error) {
        return refuse(run, "unexpected: ", error.what());
    }
}

} // namespace

} // namespace quelta::tools

int wmain(int count, wchar_t** arguments)
{
    std::vector<std::string> texts;
    for (int i = 1; i < count; ++i) texts.push_back(quelta::toUtf8(arguments[i]));
    quelta::tools::keepStandardOutput();
    quelta::tools::rememberLogEnd();
    quelta::tools::stopOnInterrupt();
    return quelta::tools::runCommandLine(std::move(texts));
}
