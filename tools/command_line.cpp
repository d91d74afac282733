#include "command_line.h"

#include "commands.h"
#include "console.h"
#include "failure.h"
#include "version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <new>

namespace quelta::tools {

namespace {

void addTokenOptions(CLI::App& command, TokenOptions& options)
{
    command.add_option("--provider", options.provider, "The way to the token: csp (CryptoAPI, the default) or ksp (key storage)")
        ->transform(CLI::CheckedTransformer(std::map<std::string, Interface>{{"csp", Interface::csp}, {"ksp", Interface::ksp}}))
        ->option_text("csp|ksp");
    command
        .add_option("--container", options.container, "The key's name, 32 hexadecimal digits (default: the first that will do)")
        ->option_text("ID");
}

void addPin(CLI::App& command, TokenOptions& options)
{
    command
        .add_option("--pin", options.pin,
                    "The token's PIN, which others may see in the list of processes (default: a dialog asks)")
        ->option_text("PIN");
}

CLI::App& addCommand(CLI::App& app, const char* name, const char* description, const char* example)
{
    CLI::App& command = *app.add_subcommand(name, description);
    command.footer(std::string("Example:\n  quelta ") + example);
    return command;
}

void addOutput(CLI::App& command, std::string& output, const char* description)
{
    command.add_option("-o,--output", output, description)->option_text("FILE");
}

void addFile(CLI::App& command, const char* name, std::string& file, const char* description)
{
    command.add_option(name, file, description)->required()->option_text(" ");
}

void addSign(CLI::App& app, SignOptions& options)
{
    CLI::App& command = addCommand(app, "sign", "Sign a file with a key on the token: detached CMS, the certificates in it",
                                   "sign contract.pdf -o contract.pdf.p7s");
    addFile(command, "FILE", options.file, "The file to sign");
    addOutput(command, options.output, "The signature (default: FILE.p7s)");
    addTokenOptions(command, options.token);
    addPin(command, options.token);
    command.add_option("--hash", options.hash, "sha256 (the default), sha384, sha512 or sha1")
        ->check(CLI::IsMember({"sha256", "sha384", "sha512", "sha1"}))
        ->option_text("NAME");
    command.add_flag("--pem", options.pem, "Write PEM text instead of DER");
    command.callback([&] { sign(options); });
}

void addVerify(CLI::App& app, VerifyOptions& options)
{
    CLI::App& command = addCommand(app, "verify", "Check a detached signature and say who signed",
                                   "verify contract.pdf.p7s contract.pdf --root root.pem");
    addFile(command, "SIGNATURE", options.signature, "The signature, DER or PEM");
    addFile(command, "FILE", options.file, "The file that was signed");
    command.add_option("--root", options.root, "Root certificates, PEM or DER, to one of which the signer's must lead")
        ->option_text("FILE");
    command.callback([&] { verify(options); });
}

void addEncrypt(CLI::App& app, EncryptOptions& options)
{
    CLI::App& command = addCommand(app, "encrypt", "Encrypt a file for the holder of a certificate: CMS, AES-256",
                                   "encrypt letter.txt -o letter.txt.p7m --cert recipient.pem");
    addFile(command, "FILE", options.file, "The file to encrypt");
    addOutput(command, options.output, "The message (default: FILE.p7m)");
    command.add_option("--cert", options.certificate, "The recipient's certificate, PEM or DER (default: the token's own)")
        ->option_text("FILE");
    addTokenOptions(command, options.token);
    command.callback([&] { encrypt(options); });
}

void addDecrypt(CLI::App& app, DecryptOptions& options)
{
    CLI::App& command =
        addCommand(app, "decrypt", "Decrypt a CMS message (DER) with a key on the token", "decrypt letter.txt.p7m -o letter.txt");
    addFile(command, "FILE", options.file, "The message");
    command.add_option("-o,--output", options.output, "The decrypted file")->required()->option_text("FILE");
    addTokenOptions(command, options.token);
    addPin(command, options.token);
    command.callback([&] { decrypt(options); });
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

int refuseUsage(const CLI::App& app, const CLI::ParseError& error)
{
    const auto chosen = app.get_subcommands();
    const std::string command = chosen.empty() ? "" : " " + chosen.front()->get_name();
    complain("quelta: " + inOneLine(error.what()) + "; see quelta" + command + " --help");
    return exitUsage;
}

int show(std::string text)
{
    while (text.ends_with('\n')) text.pop_back();
    printLine(text);
    return exitDone;
}

} // namespace

int runCommandLine(std::vector<std::string> arguments)
{
    CLI::App app("Signs, verifies, encrypts and decrypts files with keys on a Quelta token", "quelta");
    app.set_version_flag("--version", std::string("quelta ") + version);
    app.require_subcommand(1);
    // A path may begin with a slash; the subcommands inherit this.
    app.allow_windows_style_options(false);
    app.footer("quelta COMMAND --help tells more. Exit codes: 0 done, 1 failed or refused, 2 wrong usage.");
    SignOptions signing;
    VerifyOptions verification;
    EncryptOptions encryption;
    DecryptOptions decryption;
    addSign(app, signing);
    addVerify(app, verification);
    addEncrypt(app, encryption);
    addDecrypt(app, decryption);
    if (!arguments.empty() && !arguments.front().starts_with('-') && !hasCommand(app, arguments.front())) {
        complain("quelta: there is no command " + arguments.front() + "; see quelta --help");
        return exitUsage;
    }
    try {
        // CLI11 takes a vector from its back.
        std::ranges::reverse(arguments);
        app.parse(arguments);
        return exitDone;
    } catch (const CLI::CallForHelp&) {
        return show(app.help());
    } catch (const CLI::CallForVersion& asked) {
        return show(asked.what());
    } catch (const CLI::ParseError& error) {
        return refuseUsage(app, error);
    } catch (const Refusal& refusal) {
        complain(std::string("quelta: NOT VALID: ") + refusal.what());
    } catch (const Failure& failure) {
        complain(std::string("quelta: ") + failure.what());
    } catch (const std::bad_alloc&) {
        complain("quelta: out of memory; close other programs and try again");
    } catch (const std::exception& error) {
        complain(std::string("quelta: unexpected: ") + error.what());
    }
    return exitFailed;
}

} // namespace quelta::tools
