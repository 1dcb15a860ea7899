// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kx::archive
{

/// One entry of an archive that a test makes, stored as it is.
struct ZipPart {
    std::string name;
    std::string content;
    unsigned mode = 0100644;
    unsigned method = 0;
    unsigned flags = 0;
    unsigned version = 20;
    unsigned madeOn = 3;
    std::string extra{};  ///< of the directory
    std::string packed{}; ///< the packed bytes, when they are not the content
};

/// Returns a number as bytes, least significant first.
std::string Bytes(std::uint64_t number, std::size_t count);

/// Returns an archive of these entries.
std::string ZipOf(const std::vector<ZipPart>& parts);

/// Returns a text as packed by the method "deflate".
std::string Deflated(const std::string& text);

/// Returns a file called "a", packed by that method.
ZipPart DeflatedPart(const std::string& text);

/// Replaces the bytes at a place that counts from the @p nth record that begins with @p mark.
void Patch(std::string& zip, const char* mark, std::size_t offset, const std::string& bytes,
           std::size_t nth = 0);

constexpr const char* kLocal = "PK\3\4";
constexpr const char* kCentral = "PK\1\2";
constexpr const char* kEndRecord = "PK\5\6";

} // namespace kx::archive
