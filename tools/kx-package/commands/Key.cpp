// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "commands/Command.h"
#include "commands/Values.h"
#include "io/AtomicFile.h"
#include "io/Error.h"
#include "io/Hex.h"
#include "io/Text.h"
#include "signature/PackageName.h"
#include "signature/PrivateKey.h"
#include "signing/Passphrase.h"

#include <memory>
#include <optional>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

struct KeyOptions {
    std::string action;
    std::string name;
    std::string type = "ed25519";
    bool hasPassphrase = false;
};

signature::KeyType TypeOf(const std::string& word)
{
    for (const auto type : {signature::KeyType::kEd25519, signature::KeyType::kP256}) {
        if (word == signature::KeyTypeName(type)) {
            return type;
        }
    }
    throw io::Error(io::ExitCode::kWrongUse, "--type",
                    "there are no keys of the type '" + word + "'", "write ed25519 or p256");
}

/// Refuses to make a key over another one, before anything is asked or made.
void RefuseExisting(const std::string& path)
{
    if (faccessat(AT_FDCWD, path.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) == 0) {
        throw io::Error(io::ExitCode::kWrongUse, path, "is there already",
                        "choose another name: a key that is lost cannot be made again");
    }
}

/// Writes both files, or none.
void WriteKey(const std::string& privatePath, const std::string& publicPath,
              const signature::PrivateKey& key, const std::optional<std::string>& passphrase)
{
    io::WriteNewFile(privatePath, key.Pem(passphrase), S_IRUSR | S_IWUSR);
    try {
        io::WriteNewFile(publicPath, key.Public().Pem(), 0666);
    } catch (const io::Error&) {
        static_cast<void>(unlink(privatePath.c_str())); // nobody has it yet
        throw;
    }
}

io::ExitCode MakeKey(const KeyOptions& options, const Output& output)
{
    if (options.action != "new") {
        throw io::Error(io::ExitCode::kWrongUse, "key", "cannot do '" + options.action + "'",
                        "write: kx-package key new NAME");
    }
    if (!signature::IsSafePackageName(options.name)) {
        throw io::Error(io::ExitCode::kWrongUse, "key new",
                        "'" + options.name + "' is no name for a key",
                        std::string("take ") + signature::kPackageNameRule);
    }
    const signature::KeyType type = TypeOf(options.type);
    const std::string privatePath = options.name + ".key.pem";
    const std::string publicPath = options.name + ".pub.pem";
    RefuseExisting(privatePath);
    RefuseExisting(publicPath);
    const std::optional<std::string> passphrase =
        options.hasPassphrase ? std::optional(AskPassphrase(privatePath, true)) : std::nullopt;
    const signature::PrivateKey key = signature::PrivateKey::Make(type);
    WriteKey(privatePath, publicPath, key, passphrase);
    const std::string id = io::Hex(key.Public().Id());
    if (output.isJson) {
        WriteJson(output, picojson::value(picojson::object{
                              {"private", JsonText(privatePath)},
                              {"public", JsonText(publicPath)},
                              {"type", JsonText(options.type)},
                              {"keyId", JsonText(id)},
                              {"isEncrypted", picojson::value(passphrase.has_value())},
                          }));
        return io::ExitCode::kFine;
    }
    output.out << "Made the key " << id << ":\n  " << privatePath
               << "  signs packages; keep it secret"
               << (passphrase.has_value() ? "" : ", as it has no passphrase") << "\n  "
               << publicPath << "  is for panels, which it tells whose packages to trust\n";
    return io::ExitCode::kFine;
}

} // namespace

void AddKey(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("key", "Make a key to sign packages with");
    const auto options = std::make_shared<KeyOptions>();
    command->add_option("action", options->action, "What to do: new")
        ->type_name(ChoiceOf({"new"}))
        ->required();
    command->add_option("name", options->name, "The key's name")->type_name("NAME")->required();
    command->add_option("--type", options->type, "The type of key: Ed25519, or ECDSA P-256")
        ->type_name(ChoiceOf({"ed25519", "p256"}))
        ->capture_default_str();
    command->add_flag("--passphrase", options->hasPassphrase,
                      "Encrypt the private key by a passphrase, which is asked for, or read as a "
                      "line from standard input");
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer("Makes NAME.key.pem, which signs, and NAME.pub.pem, which panels get. Neither "
                    "is ever overwritten.\n\n"
                    "Examples:\n"
                    "  kx-package key new release\n"
                    "  kx-package key new --type p256 --passphrase release");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return MakeKey(*options, output); };
    });
}

} // namespace kx::tool
