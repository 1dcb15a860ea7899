// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "policy/Policy.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace kx::guard
{

/// Told what is in a package, in the order in which the device's unzip unpacks it. Names are plain:
/// parts split by '/', none of them "", "." or "..", none beginning with '/'.
class IContentsTaker
{
public:
    /// A folder. @param mode  permission bits that it gets at the end
    virtual void TakeFolder(const std::string& name, unsigned mode) = 0;
    /// A file begins. @param moment  of its last change, seconds since 1970 in the panel's own time
    virtual void TakeFile(const std::string& name, unsigned mode, std::int64_t moment) = 0;
    /// Bytes of the file that began last.
    virtual void TakeBytes(std::string_view bytes) = 0;
    /// A link. @param target  as written
    virtual void TakeLink(const std::string& name, const std::string& target) = 0;

protected:
    ~IContentsTaker() = default;
};

/// Unpacks a package in the confinement, and hands over what comes out; names and amounts were
/// checked by then.
/// @throws Unread, Error as IConfinement; Error when more comes out than the limits allow, a
///         content is damaged, or two things have one name
void StreamContents(IConfinement& confinement, const archive::ByteSource& source, int descriptor,
                    const Limits& limits, IContentsTaker& taker);

} // namespace kx::guard
