// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "road/PackageCopy.h"

#include "io/Error.h"
#include "io/Transfer.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace kx::guard
{

DescriptorBytes::DescriptorBytes(io::Descriptor file, std::string shown)
    : m_file(std::move(file)), m_shown(std::move(shown)), m_size(io::SizeOf(m_file, m_shown))
{
}

std::string DescriptorBytes::Read(std::uint64_t offset, std::size_t count) const
{
    if (offset >= m_size) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(std::min<std::uint64_t>(count, m_size - offset)),
                      '\0');
    if (io::ReadAt(m_file.Number(), bytes.data(), bytes.size(), offset, m_shown) < bytes.size()) {
        throw io::Error(io::ExitCode::kNoAccess, m_shown, "became shorter while it was read",
                        "leave the file and its drive alone, and begin again");
    }
    return bytes;
}

std::unique_ptr<DescriptorBytes> OpenPackageBytes(const std::string& path)
{
    return std::make_unique<DescriptorBytes>(io::OpenFile(path), path);
}

void CopyPackage(const archive::ByteSource& source, const StateFolder& folder,
                 const std::string& name, const std::function<void()>& refuseToGoOn)
{
    constexpr std::size_t kPiece = std::size_t{1} << 18;
    const std::string shown = folder.Shown(name);
    const io::Descriptor copy = folder.Create(name);
    const std::uint64_t size = source.Size();
    for (std::uint64_t at = 0; at < size;) {
        refuseToGoOn();
        const std::string piece = source.Read(at, kPiece);
        io::WriteAll(copy.Number(), piece, shown);
        at += piece.size();
    }
    if (fsync(copy.Number()) != 0) {
        throw io::AccessError(shown, "write", errno);
    }
}

} // namespace kx::guard
