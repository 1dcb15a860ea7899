// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "checks/Findings.h"

#include <cstdint>
#include <string>
#include <vector>

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

/// Replaces the bytes at a place that counts from the @p nth record that begins with @p mark.
void Patch(std::string& zip, const char* mark, std::size_t offset, const std::string& bytes,
           std::size_t nth = 0);

constexpr const char* kLocal = "PK\3\4";
constexpr const char* kCentral = "PK\1\2";
constexpr const char* kEndRecord = "PK\5\6";

/// A package without a fault, to be spoiled in one thing.
class Recipe
{
public:
    Recipe();

    std::string fileName = "hello.kx-update";
    std::string description;    ///< with its byte order mark
    std::vector<ZipPart> parts; ///< without the description
    std::string neighbour;      ///< name of a file beside the package; none when empty
    std::string processor;      ///< the panel's; not known when empty
    void (*damage)(std::string& zip) = nullptr; ///< done to the finished archive

    /// Replaces a text in the description; it must be there.
    void Replace(const std::string& from, const std::string& to);

    /// Returns the part of that name.
    ZipPart& Part(const std::string& name);

    /// The bytes of the archive.
    [[nodiscard]] std::string Archive() const;

    /// Checks the archive as a file in a folder of its own.
    [[nodiscard]] Findings Check() const;

    /// Checks the parts as a folder.
    [[nodiscard]] Findings CheckFolder() const;
};

/// "error payload-missing DB_StepSets.$values[0]…", sorted as found; of errors and warnings only.
std::vector<std::string> Problems(const Findings& findings);

/// The head of a program for a processor of 64 bits; 62 is x86_64, 183 aarch64.
std::string ProgramBytes(unsigned machine);
