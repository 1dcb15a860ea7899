// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "compose/PrivateKeys.h"

#include "io/Error.h"
#include "io/WholeFile.h"
#include "signature/PrivateKey.h"

namespace kx::tool
{

namespace
{

std::string BeginningOf(const std::string& path)
{
    constexpr std::size_t kSearched = 65536;
    try {
        return io::ReadFileHead(path, kSearched);
    } catch (const io::Error&) {
        return {}; // told when it is packed
    }
}

} // namespace

void RefusePrivateKey(const std::string& path, const std::string& shown, const std::string& where)
{
    if (signature::HoldsPrivateKey(BeginningOf(path))) {
        throw io::Error(io::ExitCode::kProblems, where, "'" + shown + "' holds a private key",
                        "leave it out: whoever has the package would have the key");
    }
}

} // namespace kx::tool
