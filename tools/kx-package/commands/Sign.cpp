// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Package.h"
#include "commands/Command.h"
#include "commands/Values.h"
#include "common/Progress.h"
#include "io/AtomicFile.h"
#include "io/Error.h"
#include "io/Hex.h"
#include "io/Interruption.h"
#include "io/Text.h"
#include "io/WholeFile.h"
#include "signature/PackageName.h"
#include "signature/PrivateKey.h"
#include "signature/Refusal.h"
#include "signature/SignedFile.h"
#include "signing/Passphrase.h"
#include "signing/ProgramSigner.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <system_error>

#include <sys/stat.h>

#include <CLI/CLI.hpp>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

constexpr std::uint64_t kLargestKeyFile = 16384;

struct SignOptions {
    std::string package;
    std::string output;
    std::string name;
    std::string keyFile;
    SigningProgram program;
    std::string publicFile;
    bool isRemoving = false;
};

/// What came of it.
struct SignResult {
    std::string path;
    std::optional<signature::Block> block;
    std::string keyId;     ///< of the key that signed
    bool wasThere = false; ///< the package had this key's signature, or none to be removed
};

io::Error WrongSign(const std::string& where, const std::string& what, const std::string& remedy)
{
    return {io::ExitCode::kWrongUse, where, what, remedy};
}

void RefuseContradictions(const SignOptions& options)
{
    const int ways = static_cast<int>(!options.keyFile.empty()) +
                     static_cast<int>(!options.program.command.empty()) +
                     static_cast<int>(options.isRemoving);
    if (ways != 1) {
        throw WrongSign("sign", ways == 0 ? "there is nothing to sign with" : "signs in one way",
                        "give one of --key, --with and --remove");
    }
    if (options.program.command.empty() != options.publicFile.empty()) {
        throw WrongSign("sign", "--with and --public need each other",
                        "name the program that signs, and the file with its public key");
    }
    if (options.program.isRaw && options.program.command.empty()) {
        throw WrongSign("sign", "--raw says what a program writes", "give --with, too");
    }
    if (options.isRemoving && !options.name.empty()) {
        throw WrongSign("sign", "--remove needs no name", "leave --name out");
    }
}

/// Returns the path of the file to write.
std::string SignOutputPath(const SignOptions& options)
{
    if (options.output.empty()) {
        return options.package;
    }
    std::error_code error;
    if (options.output.back() == '/' || fs::is_directory(options.output, error)) {
        return (fs::path(options.output) / fs::path(options.package).filename()).string();
    }
    if (fs::path(options.output).extension() != archive::kPackageExtension) {
        throw WrongSign(options.output,
                        std::string("the name does not end in ") + archive::kPackageExtension,
                        "the panel would not find the package");
    }
    return options.output;
}

/// Returns the name that is signed: that of the signatures before, the one that is asked for, or
/// the file's own.
std::string NameToSign(const SignOptions& options, const signature::SignedFile& file)
{
    const auto& block = file.Signatures();
    if (block.has_value() && !options.name.empty() && options.name != block->statement.name) {
        throw WrongSign(options.package, "is signed as '" + block->statement.name + "' already",
                        "sign --remove takes the signatures off");
    }
    std::string name = block.has_value()      ? block->statement.name
                       : options.name.empty() ? fs::path(options.package).stem().string()
                                              : options.name;
    if (!signature::IsSafePackageName(name)) {
        throw WrongSign(options.package, "'" + name + "' is no name that can be signed",
                        std::string("give --name: ") + signature::kPackageNameRule);
    }
    return name;
}

/// Says what the package is: its name and its bytes.
signature::Statement StatementFor(const SignOptions& options, const signature::SignedFile& file,
                                  const archive::ByteSource& source,
                                  const signature::ByteTeller& tell)
{
    signature::Statement statement{NameToSign(options, file), file.Length(), ""};
    file.RefuseHidden(archive::ReadZipStructure(source));
    signature::Block block = file.Signatures().value_or(signature::Block{statement, {}});
    block.statement.digest.assign(signature::kDigestSize, '\0');
    block.signatures.push_back(
        {std::string(signature::kKeyIdSize, '\0'), std::string(signature::kSignatureSize, '\0')});
    file.RefuseBlockOf(block);
    statement.digest = file.Digest(tell);
    if (file.Signatures().has_value() && !(file.Signatures()->statement == statement)) {
        throw signature::Refusal(signature::Reason::kChanged, options.package,
                                 "was changed after it was signed",
                                 "get it again, or take the signatures off with sign --remove");
    }
    return statement;
}

/// Whoever signs: a key, or a program.
class Author
{
public:
    explicit Author(const SignOptions& options) : m_options(options)
    {
        if (!options.keyFile.empty()) {
            const std::string pem = io::ReadWholeFile(options.keyFile, kLargestKeyFile);
            m_key.emplace(signature::PrivateKey::FromPem(pem, options.keyFile, [&options] {
                return AskPassphrase(options.keyFile, false);
            }));
        } else {
            const std::string pem = io::ReadWholeFile(options.publicFile, kLargestKeyFile);
            m_public.emplace(signature::PublicKey::FromPem(pem, options.publicFile));
        }
    }

    [[nodiscard]] const signature::PublicKey& Key() const
    {
        return m_key.has_value() ? m_key->Public() : *m_public;
    }

    [[nodiscard]] std::string Sign(const std::string& bytes) const
    {
        return m_key.has_value() ? m_key->Sign(bytes)
                                 : SignByProgram(m_options.program, *m_public, bytes);
    }

private:
    const SignOptions& m_options;
    std::optional<signature::PrivateKey> m_key;
    std::optional<signature::PublicKey> m_public;
};

/// Adds a signature to those that are there. One by the same key that is good stays as it is.
void AddSignature(const Author& author, const std::string& where, SignResult& result)
{
    const std::string text = TextOf(result.block->statement);
    std::vector<signature::Signature>& signatures = result.block->signatures;
    result.keyId = author.Key().Id();
    const auto place = std::find_if(
        signatures.begin(), signatures.end(),
        [&result](const signature::Signature& one) { return one.keyId >= result.keyId; });
    const bool isThere = place != signatures.end() && place->keyId == result.keyId;
    if (isThere && author.Key().IsGood(place->bytes, text)) {
        result.wasThere = true;
        return;
    }
    if (!isThere && signatures.size() == signature::kMostSignatures) {
        throw signature::Refusal(signature::Reason::kLimit, where, "has 16 signatures already",
                                 "sign --remove takes them off");
    }
    const signature::Signature made{result.keyId, author.Sign(text)};
    if (isThere) {
        *place = made;
    } else {
        signatures.insert(place, made);
    }
    // What is written is what can be read again.
    static_cast<void>(signature::ReadBlock(BytesOf(*result.block), where));
}

/// Writes the package with its new block. What replaces it keeps its mode.
void WriteSigned(const signature::SignedFile& file, const SignOptions& options,
                 const SignResult& result, const signature::ByteTeller& tell)
{
    io::AtomicFile made(result.path);
    file.Write(result.block, made.File().Number(), result.path, tell);
    struct stat info {
    };
    if (result.path == options.package && stat(options.package.c_str(), &info) == 0 &&
        fchmod(made.File().Number(), info.st_mode & 07777U) != 0) {
        throw io::AccessError(result.path, "keep the mode of", errno);
    }
    made.Commit();
}

SignResult SignPackage(const SignOptions& options, const Output& output)
{
    SignResult result;
    result.path = SignOutputPath(options);
    const archive::FileBytes source(options.package);
    const signature::SignedFile file(source, options.package);
    // A person may take long to type the passphrase.
    std::optional<Author> author;
    if (!options.isRemoving) {
        author.emplace(options);
    }
    const io::Interruption interruption;
    Progress progress(output, options.isRemoving ? "writing" : "signing");
    // The file is read twice to be signed.
    const double whole = static_cast<double>(source.Size()) * (options.isRemoving ? 1.0 : 2.0);
    double before = 0;
    const auto tell = [&](std::uint64_t done) {
        if (io::Interruption::IsAsked()) {
            throw io::Error(io::ExitCode::kNoAccess, options.package,
                            "was not signed: interrupted");
        }
        progress.Show((before + static_cast<double>(done)) / whole);
    };
    if (!author.has_value()) {
        result.wasThere = !file.Signatures().has_value();
    } else {
        const signature::Statement statement = StatementFor(options, file, source, tell);
        result.block = file.Signatures().value_or(signature::Block{statement, {}});
        AddSignature(*author, options.package, result);
        before = static_cast<double>(source.Size());
    }
    if (!result.wasThere || result.path != options.package) {
        WriteSigned(file, options, result, tell);
    }
    return result;
}

void TellSignedAsJson(const Output& output, const SignResult& result)
{
    picojson::object told = {
        {"file", JsonText(result.path)},
        {"isChanged", picojson::value(!result.wasThere)},
    };
    if (result.block.has_value()) {
        const signature::Statement& statement = result.block->statement;
        picojson::array keys;
        for (const signature::Signature& one : result.block->signatures) {
            keys.push_back(JsonText(io::Hex(one.keyId)));
        }
        told["keyId"] = JsonText(io::Hex(result.keyId));
        told["keyIds"] = picojson::value(keys);
        told["name"] = JsonText(statement.name);
        told["length"] = JsonNumber(statement.length);
        told["sha256"] = JsonText(io::Hex(statement.digest));
    }
    WriteJson(output, picojson::value(told));
}

io::ExitCode Sign(const SignOptions& options, const Output& output)
{
    RefuseContradictions(options);
    const SignResult result = SignPackage(options, output);
    if (output.isJson) {
        TellSignedAsJson(output, result);
        return io::ExitCode::kFine;
    }
    output.out << io::Printable(result.path) << ": ";
    if (!result.block.has_value()) {
        output.out << (result.wasThere ? "has no signatures\n" : "signatures removed\n");
        return io::ExitCode::kFine;
    }
    output.out << (result.wasThere ? "was signed" : "signed") << " as '"
               << result.block->statement.name << "' by the key " << io::Hex(result.keyId)
               << (result.wasThere ? " already, " : ", ")
               << io::CountText(result.block->signatures.size(), "signature") << '\n';
    return io::ExitCode::kFine;
}

} // namespace

void AddSign(CLI::App& program, Invocation& invocation)
{
    CLI::App* const command = program.add_subcommand("sign", "Sign a package");
    const auto options = std::make_shared<SignOptions>();
    command->add_option("package", options->package, "The package file")
        ->type_name(kPackageValue)
        ->required();
    command->add_option("--key", options->keyFile, "The private key to sign with")
        ->type_name(kFileValue);
    command
        ->add_option("--with", options->program.command,
                     "A command that signs instead: it gets the name of a file with the bytes to "
                     "be signed, and writes the signature to standard output")
        ->type_name("COMMAND-LINE");
    command->add_option("--public", options->publicFile, "The public key of that command")
        ->type_name(kFileValue);
    command->add_flag("--raw", options->program.isRaw,
                      "Of a P-256 key, the command writes r and s instead of DER");
    command->add_flag("--remove", options->isRemoving,
                      "Remove all signatures: the bytes are those from before the first one");
    command
        ->add_option("--name", options->name,
                     "The package's name to sign; that of the file when nothing is named")
        ->type_name("NAME");
    command
        ->add_option("-o,--output", options->output,
                     "The package to write, or the folder for it; the package itself when nothing "
                     "is named")
        ->type_name(kFileValue);
    command->add_flag("--json", invocation.isJson, "Write the result as JSON");
    command->footer(
        "A package may have up to 16 signatures; each further one leaves those before it good.\n"
        "The passphrase of a key is asked for, or read as a line from standard input.\n\n"
        "Examples:\n"
        "  kx-package sign --key release.key.pem recipes.kx-update\n"
        "  kx-package sign --with './sign-on-token.sh' --public token.pub.pem recipes.kx-update\n"
        "  kx-package sign --remove recipes.kx-update -o unsigned/");
    command->callback([options, &invocation] {
        invocation.run = [options](const Output& output) { return Sign(*options, output); };
    });
}

} // namespace kx::tool
