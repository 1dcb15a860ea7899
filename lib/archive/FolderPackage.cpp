// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "archive/Package.h"
#include "io/Descriptor.h"
#include "io/Error.h"
#include "io/Reach.h"
#include "io/Transfer.h"

#include <filesystem>
#include <system_error>

#include <sys/stat.h>

namespace kx::archive
{

namespace
{

namespace fs = std::filesystem;

class FolderPackage final : public Package
{
public:
    explicit FolderPackage(const std::string& path) : m_path(path)
    {
        std::vector<PackageEntry> entries;
        io::ForEachBelow(path, [&entries](const std::string& name, const std::string& /*path*/,
                                          const struct stat& info) {
            entries.push_back(EntryOf(name, info));
            return true;
        });
        m_entries = Arranged(std::move(entries));
    }

    [[nodiscard]] const std::string& Path() const override { return m_path; }
    [[nodiscard]] bool IsArchive() const override { return false; }
    [[nodiscard]] const std::vector<PackageEntry>& Entries() const override { return m_entries; }

    [[nodiscard]] std::string Read(const std::string& name, std::uint64_t limit) const override
    {
        const std::string path = m_path + "/" + name;
        return io::ReadUpTo(io::OpenFile(path, "read").Number(), limit, path);
    }

    void Stream(const std::string& name, const ContentSink& sink) const override
    {
        StreamFile(m_path + "/" + name, sink);
    }

    [[nodiscard]] std::string LinkTarget(const std::string& name) const override
    {
        std::error_code error;
        return fs::read_symlink(m_path + "/" + name, error).string();
    }

private:
    static PackageEntry EntryOf(const std::string& name, const struct stat& info)
    {
        PackageEntry entry;
        entry.name = name;
        entry.kind = S_ISREG(info.st_mode)   ? PackageEntry::Kind::kFile
                     : S_ISDIR(info.st_mode) ? PackageEntry::Kind::kFolder
                     : S_ISLNK(info.st_mode) ? PackageEntry::Kind::kLink
                                             : PackageEntry::Kind::kOther;
        entry.size = S_ISDIR(info.st_mode) ? 0 : static_cast<std::uint64_t>(info.st_size);
        entry.mode = info.st_mode & 07777U;
        entry.hasMode = true;
        return entry;
    }

    std::string m_path;
    std::vector<PackageEntry> m_entries;
};

} // namespace

std::unique_ptr<Package> OpenFolder(const std::string& path)
{
    auto package = std::make_unique<FolderPackage>(path);
    if (package->Find(kDescriptionName) == nullptr && package->Find(kManifestName) != nullptr) {
        throw io::Error(io::ExitCode::kWrongUse, path, "is the source of a package",
                        "build it first: kx-package build " + path);
    }
    return package;
}

} // namespace kx::archive
