// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "io/Descriptor.h"
#include "journal/StateFolder.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kx::guard
{

/// The bytes of an open file, by its descriptor: what becomes of its name does not matter.
class DescriptorBytes final : public archive::ByteSource
{
public:
    /// @param file   a regular one, open for reading
    /// @param shown  what errors call it
    /// @throws Error when its size cannot be told
    DescriptorBytes(io::Descriptor file, std::string shown);

    [[nodiscard]] int Number() const { return m_file.Number(); }
    [[nodiscard]] std::uint64_t Size() const override { return m_size; }
    /// @throws Error also when the file has become shorter than it was
    [[nodiscard]] std::string Read(std::uint64_t offset, std::size_t count) const override;

private:
    io::Descriptor m_file;
    std::string m_shown;
    std::uint64_t m_size;
};

/// Opens the file of a package: a regular one, nothing else even for a moment. Links are followed.
/// @throws Error when it cannot be opened
[[nodiscard]] std::unique_ptr<DescriptorBytes> OpenPackageBytes(const std::string& path);

/// Copies a package into a folder, reading it once from its beginning to its end, and brings the
/// copy to the disk. From then on the copy is the package, whatever becomes of the source.
/// @param source        as many bytes as it has are copied
/// @param refuseToGoOn  called between pieces; throws to end the copying
/// @throws Error when something cannot be read or written; what was written then stays there
void CopyPackage(const archive::ByteSource& source, const StateFolder& folder,
                 const std::string& name, const std::function<void()>& refuseToGoOn);

} // namespace kx::guard
