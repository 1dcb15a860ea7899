// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/WholeFile.h"

#include "io/Descriptor.h"
#include "io/Transfer.h"

namespace kx::io
{

std::string ReadWholeFile(const std::string& path, std::uint64_t limit)
{
    return ReadAll(OpenFile(path).Number(), limit, path);
}

std::string ReadFileHead(const std::string& path, std::size_t size, const std::string& doing)
{
    return ReadUpTo(OpenFile(path, doing).Number(), size, path);
}

} // namespace kx::io
