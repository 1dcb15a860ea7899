// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ZipStructure.h"

#include <functional>

namespace kx::archive
{

/// How the content of an entry turned out.
enum class ContentState {
    kFine,
    kUnsupported, ///< the method cannot be followed; nothing was read
    kDamaged,     ///< the packed bytes make no sense, or end too early
    kWrongCrc,    ///< the CRC is another one
    kWrongSize,   ///< all is well but for another size than told
    kTooLarge,    ///< reading stopped at the limit
};

struct ContentResult {
    ContentState state = ContentState::kFine;
    std::uint64_t size = 0; ///< bytes that came out
};

/// Takes the unpacked bytes, piece by piece; false ends the reading.
using ContentSink = std::function<bool(std::string_view piece)>;

/// Tells whether contents of the method can be unpacked here.
[[nodiscard]] bool IsReadableMethod(unsigned method);

/// Unpacks the content of an entry as the device's unzip does: with the numbers of ContentHeader,
/// in pieces, never more than @p limit bytes and a piece.
/// @throws Error when the source cannot be read
[[nodiscard]] ContentResult ReadContent(const ByteSource& source, const ZipMember& member,
                                        std::uint64_t limit, const ContentSink& sink);

} // namespace kx::archive
