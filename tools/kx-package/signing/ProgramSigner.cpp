// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "signing/ProgramSigner.h"

#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Interruption.h"
#include "io/TemporaryFile.h"
#include "io/Text.h"
#include "io/Transfer.h"
#include "trial/ChildProcess.h"

#include <filesystem>
#include <optional>
#include <system_error>

namespace kx::tool
{

namespace
{

namespace fs = std::filesystem;

/// A file with the bytes to be signed, in a folder for it alone; both are gone at its end.
class FileToSign
{
public:
    explicit FileToSign(std::string_view bytes)
    {
        const io::NewFolder made = io::MakeFolderIn(fs::temp_directory_path().string(), "kx-sign");
        if (made.error != 0) {
            throw io::AccessError("", "make a temporary folder", made.error);
        }
        m_folder = made.path;
        const io::Descriptor file = io::CreateFile(Path(), 0644);
        io::WriteAll(file.Number(), bytes, Path());
    }
    FileToSign(const FileToSign&) = delete;
    FileToSign& operator=(const FileToSign&) = delete;
    ~FileToSign()
    {
        std::error_code error; // a folder for temporary files may keep it, if it must
        fs::remove_all(m_folder, error);
    }

    [[nodiscard]] std::string Path() const { return m_folder + "/statement"; }

private:
    std::string m_folder;
};

io::Error Failed(const std::string& command, const std::string& what, const std::string& remedy)
{
    return {io::ExitCode::kProblems, command, what, remedy};
}

/// Returns what the program wrote.
std::string OutputOf(const std::string& command, const std::string& file)
{
    const io::Interruption interruption;
    const ChildResult result = RunChild({"/bin/sh", "-c", command + " \"$@\"", "kx-package", file},
                                        [] { return !io::Interruption::IsAsked(); });
    if (result.status != 0) {
        std::string why = "ended with status " + std::to_string(result.status);
        for (const std::string& line : result.err.Lines()) {
            why += "\n  " + line;
        }
        throw Failed(command, why, "");
    }
    return result.out.Bytes().value_or(std::string());
}

std::optional<std::string> Canonical(const SigningProgram& program, signature::KeyType type,
                                     const std::string& output)
{
    if (type == signature::KeyType::kEd25519) {
        return output;
    }
    return program.isRaw ? signature::P256FromRaw(output) : signature::P256FromDer(output);
}

} // namespace

std::string SignByProgram(const SigningProgram& program, const signature::PublicKey& key,
                          std::string_view bytes)
{
    const FileToSign file(bytes);
    const std::string output = OutputOf(program.command, file.Path());
    const std::optional<std::string> signature = Canonical(program, key.Type(), output);
    if (!signature.has_value() || !key.IsGood(*signature, bytes)) {
        const bool isP256 = key.Type() == signature::KeyType::kP256;
        const std::string wanted = !isP256         ? "the 64 bytes of an Ed25519 signature"
                                   : program.isRaw ? "r and s, 32 bytes each"
                                                   : "the DER of an ECDSA signature";
        throw Failed(program.command,
                     "wrote " + io::CountText(output.size(), "byte") +
                         ", which are no signature by the public key",
                     "it must write " + wanted +
                         " to standard output, and sign with the key that "
                         "--public names" +
                         (isP256 && !program.isRaw ? "; --raw takes r and s" : ""));
    }
    return *signature;
}

} // namespace kx::tool
