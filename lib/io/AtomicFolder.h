// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::io
{

/// A folder that is there whole or not at all: it is made beside its place, and takes it in one
/// step. Where an empty folder stands there already, it is made inside that one, which is kept, and
/// what is in it is moved up at the end.
class AtomicFolder
{
public:
    /// Begins the folder, with the mode 777 less the umask.
    /// @param path  the folder above it must be there
    /// @throws Error with kWrongUse when something is there that is no empty folder, otherwise when
    ///         no folder can be made
    explicit AtomicFolder(const std::string& path);
    AtomicFolder(const AtomicFolder&) = delete;
    AtomicFolder& operator=(const AtomicFolder&) = delete;
    /// Removes what was made, unless Commit took place.
    ~AtomicFolder();

    /// The folder to write into until Commit, without a '/' at its end.
    [[nodiscard]] const std::string& Path() const { return m_made; }

    /// Gives the folder its place. What is in it need not be on the disk for that.
    /// @throws Error when that fails; then nothing is there, or the empty folder
    void Commit();

private:
    void MoveUp() const;

    std::string m_path;      ///< without '/' at its end
    std::string m_made;      ///< empty once it has its place
    bool m_isInside = false; ///< it was made in an empty folder
};

} // namespace kx::io
