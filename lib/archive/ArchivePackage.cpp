// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Package.h"
#include "archive/UnpackedArchive.h"
#include "io/Error.h"
#include "io/StandardInput.h"

#include <optional>
#include <utility>

namespace kx::archive
{

namespace
{

/// The archive on standard input, or nothing for one that has a path.
std::unique_ptr<io::StandardInput> InputOf(const std::string& path)
{
    return path == io::kStandardInput ? std::make_unique<io::StandardInput>() : nullptr;
}

/// An archive's file, its structure and what comes out of it, together.
class ArchivePackage final : public Package
{
public:
    explicit ArchivePackage(const std::string& path)
        : m_input(InputOf(path)), m_bytes(m_input != nullptr ? m_input->Path() : path),
          m_zip(ReadZipStructure(m_bytes))
    {
        const std::string name = m_input != nullptr ? io::kStandardInputName : path;
        const auto refuse = [&name](const char* why) {
            throw io::Error(io::ExitCode::kProblems, name,
                            std::string("cannot open the archive: ") + why);
        };
        if (m_zip.Has(ZipFlaw::kNoEnd)) {
            refuse("Not a zip archive");
        }
        if (m_zip.Has(ZipFlaw::kTooMany)) {
            refuse("it has too many entries");
        }
        m_unpacked.emplace(name, m_bytes, m_zip);
    }

    [[nodiscard]] const std::string& Path() const override { return m_unpacked->Path(); }
    [[nodiscard]] bool IsArchive() const override { return true; }
    [[nodiscard]] const std::vector<PackageEntry>& Entries() const override
    {
        return m_unpacked->Entries();
    }
    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        return m_unpacked->Read(name, limit);
    }
    void Stream(const std::string& name, const ContentSink& sink) const override
    {
        m_unpacked->Stream(name, sink);
    }
    [[nodiscard]] int UnpackStatus() const override { return m_unpacked->UnpackStatus(); }
    [[nodiscard]] const ByteSource* Bytes() const override { return &m_bytes; }

private:
    std::unique_ptr<io::StandardInput> m_input;
    FileBytes m_bytes;
    ZipStructure m_zip;
    std::optional<UnpackedArchive> m_unpacked;
};

} // namespace

std::unique_ptr<Package> OpenArchive(const std::string& path)
{
    return std::make_unique<ArchivePackage>(path);
}

} // namespace kx::archive
