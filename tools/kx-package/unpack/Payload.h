// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kx::tool
{

/// A file or an empty folder below a folder of a package.
struct PayloadPart {
    std::string name;                             ///< path below the folder
    const archive::PackageEntry* entry = nullptr; ///< with the content; null for an empty folder
};

/// What a package holds besides description and updater, as the author's files it is to become.
/// Links are what they lead to, which must be in the package.
class Payload
{
public:
    /// @param package  not owned; must live as long as the object
    explicit Payload(const archive::Package& package);

    /// Returns the file that a name of the package leads to, or null.
    [[nodiscard]] const archive::PackageEntry* FileAt(const std::string& name) const;

    /// Returns everything below a folder, and counts it as used.
    /// @param folder  name in the package, without a '/' at its end; empty for all of it
    /// @throws Error where something cannot be an author's file
    [[nodiscard]] std::vector<PayloadPart> TakeBelow(const std::string& folder);

    /// Counts one entry as used.
    void Take(const std::string& name);

    /// Returns the files that nobody has used, and counts them as used.
    /// @param lost  gets the names of links that lead to nothing in the package
    /// @throws Error likewise
    [[nodiscard]] std::vector<PayloadPart> TakeRest(std::vector<std::string>& lost);

private:
    using Parts = std::vector<PayloadPart>;
    [[nodiscard]] std::size_t FirstBelow(const std::string& folder) const;
    void Collect(const std::string& folder, const std::string& shown, unsigned depth, Parts& parts);
    void AddLink(const archive::PackageEntry& link, const std::string& shown, unsigned depth,
                 Parts& parts);
    void Add(PayloadPart part, Parts& parts);
    [[noreturn]] void Refuse(const std::string& name, const std::string& what) const;

    const archive::Package& m_package;
    std::vector<bool> m_isUsed; ///< of the package's entries
    std::size_t m_parts = 0;
};

/// Writes contents of a package to files.
class PayloadWriter
{
public:
    /// @param folder    where paths begin
    /// @param mostBytes for all files together
    /// @param tell      told how many bytes are written
    PayloadWriter(const archive::Package& package, std::string folder, std::uint64_t mostBytes,
                  std::function<void(std::uint64_t)> tell);

    /// Writes the content of an entry to a new file.
    /// @throws Error when that fails, there is too much, or the program is asked to end
    void WriteEntry(const std::string& path, const archive::PackageEntry& entry);

    /// Writes a text to a new file.
    /// @throws Error likewise
    void WriteText(const std::string& path, const std::string& text);

    /// Makes a folder, with those above it.
    void MakeFolder(const std::string& path);

    /// Tells whether a file that was written has the content of an entry.
    [[nodiscard]] bool IsSame(const std::string& path, const archive::PackageEntry& entry) const;

    /// Refuses more bytes than all files together may have.
    /// @throws Error
    void RefuseMore(std::uint64_t bytes) const;

    [[nodiscard]] std::uint64_t Bytes() const { return m_bytes; }

private:
    void WritePiece(int descriptor, std::string_view piece, const std::string& path);

    const archive::Package& m_package;
    std::string m_folder;
    std::uint64_t m_mostBytes;
    std::function<void(std::uint64_t)> m_tell;
    std::uint64_t m_bytes = 0;
};

} // namespace kx::tool
