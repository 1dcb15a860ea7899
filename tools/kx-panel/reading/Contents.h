// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "policy/Policy.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kx::guard
{

/// A file or folder of a package, as the device's unzip makes it.
struct UnpackedEntry {
    std::string name;                   ///< plain: see IContentsTaker
    unsigned mode = 0;                  ///< permission bits, 0 to 0777
    std::optional<std::int64_t> moment; ///< of the last change, seconds since 1970
};

/// Told what is in a package, sorted by name; folders come before what is in them. What comes out
/// is what the device's unzip makes of the archive. Names are plain: parts split by '/', each of 1
/// to 255 bytes, none of them "." or "..", none with a zero byte, none beginning with '/'.
class IContentsTaker
{
public:
    /// A folder, whose mode and moment it gets when all is in it.
    virtual void TakeFolder(const UnpackedEntry& folder) = 0;
    /// A file begins.
    virtual void TakeFile(const UnpackedEntry& file) = 0;
    /// Bytes of the file that began last.
    virtual void TakeBytes(std::string_view bytes) = 0;
    /// A link. @param target  as written
    virtual void TakeLink(const std::string& name, const std::string& target) = 0;

protected:
    ~IContentsTaker() = default;
};

/// Unpacks a package in the confinement, and hands over what comes out: names, their order, and
/// amounts are checked by then.
/// @param source  reads from @p descriptor
/// @throws Unread, Error as IConfinement; Unread when a content is damaged, when more comes out
/// than
///         the limits allow, or when what reads the package says what it must not say
/// @throws whatever the taker throws
void StreamContents(IConfinement& confinement, const archive::ByteSource& source, int descriptor,
                    const Limits& limits, IContentsTaker& taker);

} // namespace kx::guard
