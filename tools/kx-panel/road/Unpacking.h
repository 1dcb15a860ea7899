// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "journal/StateFolder.h"
#include "reading/Contents.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kx::guard
{

/// Makes the tree of a package in an empty folder, as the device's unzip does. Everything is made
/// anew, name by name from the folder on: nothing is written through a link. What the process's
/// umask holds back is given all the same.
class Unpacking final : public IContentsTaker
{
public:
    /// @param folder        must live as long as the object
    /// @param refuseToGoOn  called between pieces; throws to end the unpacking
    Unpacking(const StateFolder& folder, std::function<void()> refuseToGoOn);

    void TakeFolder(const UnpackedEntry& folder) override;
    void TakeFile(const UnpackedEntry& file) override;
    void TakeBytes(std::string_view bytes) override;
    void TakeLink(const std::string& name, const std::string& target) override;

    /// Gives folders their modes and moments, and brings everything to the disk.
    /// @throws Error when that fails
    void Finish();

private:
    /// Opens the folder in which a name is to be made, and keeps it open for the next one.
    const io::Descriptor& FolderOf(const std::string& name);
    void CloseFile();

    const StateFolder& m_folder;
    std::function<void()> m_refuseToGoOn;
    std::vector<UnpackedEntry> m_folders;
    std::string m_parentName;
    io::Descriptor m_parent; ///< of m_parentName; not open at first
    UnpackedEntry m_entry;   ///< of m_file
    io::Descriptor m_file;
};

} // namespace kx::guard
