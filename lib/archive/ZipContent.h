// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/Package.h"
#include "archive/ZipStructure.h"

#include <cstdint>
#include <string>

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

/// Tells whether contents of the method can be unpacked here.
[[nodiscard]] bool IsReadableMethod(unsigned method);

/// Unpacks contents as the device's unzip does: with the numbers of ContentHeader, in pieces.
class ContentReader
{
public:
    /// @param source  not owned; must live as long as the object
    /// @param wanted  how many bytes of each content will be asked for: for the beginning of a
    ///                large one not much more than that is unpacked
    explicit ContentReader(const ByteSource& source, std::uint64_t wanted = UINT64_MAX);

    /// Unpacks the content of an entry, never more than @p limit bytes and a piece.
    /// @throws Error when the source cannot be read
    [[nodiscard]] ContentResult Read(const ZipMember& member, std::uint64_t limit,
                                     const ContentSink& sink);

private:
    const ByteSource& m_source;
    std::string m_room; ///< for what is unpacked; kept, as many entries are small
};

} // namespace kx::archive
