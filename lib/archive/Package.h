// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"
#include "panel/Names.h"

#include <cstdint>
#include <ctime>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::archive
{

class ByteSource;

/// The names that the updater gives to what a package holds.
constexpr const char* kDescriptionName = panel::kDescription;
constexpr const char* kUpdaterName = panel::kUpdater;
constexpr const char* kPackageExtension = panel::kPackageExtension;

/// The file from which a package is built; a folder with it is the source of one, and no package.
constexpr const char* kManifestName = "package.toml";

/// One thing in a package.
struct PackageEntry {
    enum class Kind { kFile, kFolder, kLink, kOther };

    std::string name; ///< path inside the package, parts split by '/', none at the end
    Kind kind = Kind::kFile;
    std::uint64_t size = 0; ///< bytes of a file's content, or of a link's target
    unsigned mode = 0;      ///< permission bits, 0 to 07777; 0 where the package tells none
    bool hasMode = false;
    std::optional<std::time_t> moment; ///< of an archive's file, as if it had been written in UTC
};

/// Takes a content, piece by piece; false ends the reading.
using ContentSink = std::function<bool(std::string_view piece)>;

/// Tells that something in a package is damaged, or packed in a way that cannot be read here.
class ContentError final : public io::Error
{
public:
    using io::Error::Error;
};

/// A package to look into: an archive, or the folder that it would be unpacked to. Only reads.
class Package
{
public:
    Package() = default;
    Package(const Package&) = delete;
    Package& operator=(const Package&) = delete;
    virtual ~Package() = default;

    /// The path under which the package was opened.
    [[nodiscard]] virtual const std::string& Path() const = 0;

    /// Tells whether the package is an archive.
    [[nodiscard]] virtual bool IsArchive() const = 0;

    /// Everything in the package, sorted by name, byte by byte. Folders that only show as parts of
    /// other names are listed, too.
    [[nodiscard]] virtual const std::vector<PackageEntry>& Entries() const = 0;

    /// Returns the content of the file @p name, or its first @p limit bytes.
    /// @throws ContentError when it is damaged, or packed in a way that cannot be read here
    /// @throws Error when it cannot be read
    [[nodiscard]] virtual std::string Read(const std::string& name, std::uint64_t limit) const = 0;

    /// Hands the content of the file @p name to @p sink, in pieces: it needs no memory for all of
    /// it. That a content is damaged may be found at its end, when the sink has had all before.
    /// @throws what Read throws
    virtual void Stream(const std::string& name, const ContentSink& sink) const;

    /// Returns what the link @p name leads to, as written there; empty when that is damaged. In an
    /// archive it is the link's content.
    [[nodiscard]] virtual std::string LinkTarget(const std::string& name) const;

    /// Returns the exit status with which the device's unzip unpacks the package; the updater takes
    /// every one but 0 for a failure. 0 for a folder, which is what unpacking made. Of an archive
    /// all contents are read.
    /// @throws Error when it cannot be read
    [[nodiscard]] virtual int UnpackStatus() const;

    /// The bytes of an archive; null of anything else. They live as long as the package.
    [[nodiscard]] virtual const ByteSource* Bytes() const { return nullptr; }

    /// Returns the entry of that name, or null.
    [[nodiscard]] const PackageEntry* Find(const std::string& name) const;
};

/// Tells whether a path names an archive, as any file does, or a folder.
/// @throws Error when it is neither, or cannot be looked at
[[nodiscard]] bool NamesArchive(const std::string& path);

/// Opens an archive or a folder; "-" is the archive on standard input, read to its end.
/// @throws Error when it is neither, or cannot be read
[[nodiscard]] std::unique_ptr<Package> OpenPackage(const std::string& path);
[[nodiscard]] std::unique_ptr<Package> OpenArchive(const std::string& path);
[[nodiscard]] std::unique_ptr<Package> OpenFolder(const std::string& path);

/// Hands the content of a file out, in pieces.
/// @throws Error when it cannot be read, or is no regular file
void StreamFile(const std::string& path, const ContentSink& sink);

/// Sorts entries by name, adds the folders that only show as parts of names, and drops all but the
/// last of several entries with one name, which is what unpacking leaves. Folders whose path is too
/// long for any system are not added.
/// @throws Error when the names hold more folders than memory should
[[nodiscard]] std::vector<PackageEntry> Arranged(std::vector<PackageEntry> entries);

} // namespace kx::archive
