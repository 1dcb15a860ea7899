// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::guard
{

/// A folder of what is remembered, held open: whatever becomes of its path, everything is done in
/// this folder. Names are single ones, without '/'. No link is ever followed; one that has a name
/// that is to be read or gone into is an error.
class StateFolder
{
public:
    /// @param folder  open for reading
    /// @param shown   what errors call it
    StateFolder(io::Descriptor folder, std::string shown);

    [[nodiscard]] const io::Descriptor& File() const { return m_folder; }

    /// Returns what errors call a name in it.
    [[nodiscard]] std::string Shown(const std::string& name) const { return m_shown + "/" + name; }
    [[nodiscard]] const std::string& Path() const { return m_shown; }

    /// Returns all names in it, sorted.
    /// @throws Error when it cannot be listed
    [[nodiscard]] std::vector<std::string> Names() const;

    /// Reads a file; nothing when nothing has the name.
    /// @throws Error when it is no regular file, is larger than @p limit, or cannot be read
    [[nodiscard]] std::optional<std::string> Read(const std::string& name,
                                                  std::uint64_t limit) const;

    /// Opens a file for reading.
    /// @throws Error when it is no regular file, or cannot be opened
    [[nodiscard]] io::Descriptor Open(const std::string& name) const;

    /// Opens a folder in it; nothing when nothing has the name.
    /// @throws Error when it is no folder
    [[nodiscard]] std::optional<StateFolder> Find(const std::string& name) const;

    /// Opens a folder in it, which is made (mode 700) when nothing has the name.
    /// @throws Error when it is no folder, or cannot be made
    [[nodiscard]] StateFolder FindOrMake(const std::string& name) const;

    /// Makes a file of mode 600 and opens it for reading and writing; nothing may have the name.
    /// @throws Error when that fails
    [[nodiscard]] io::Descriptor Create(const std::string& name) const;

    /// Opens a file for reading and writing; it is made (mode 600) when nothing has the name.
    /// @throws Error when it is no regular file, or cannot be opened
    [[nodiscard]] io::Descriptor OpenOrCreate(const std::string& name) const;

    /// Gives a file other bytes in one step, and brings them to the disk: after a power cut it has
    /// the old bytes or the new ones. A link of that name is replaced, not followed.
    /// @throws Error when that fails; then the old bytes are there
    void Replace(const std::string& name, std::string_view bytes) const;

    /// Removes what has a name: a file, a link, or a folder with all that is below it. Nothing is
    /// done when nothing has it. Folders are held open one at a time, however deep they are.
    /// @throws Error for what cannot be removed
    void Remove(const std::string& name) const;

    /// Brings the names in it to the disk, as far as the file system can.
    void Sync() const;

private:
    io::Descriptor m_folder;
    std::string m_shown;
};

} // namespace kx::guard
