// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "archive/ByteSource.h"
#include "confined/Confinement.h"
#include "policy/Policy.h"

#include <cstddef>
#include <cstdint>

namespace kx::guard
{

/// What the examination tells, as kinds of messages. First what is wrong with the archive; when
/// nothing is, what is wrong with the description; when nothing is, the rest. kDone comes last.
enum class ExamKind : std::uint8_t {
    kStructure = 1, ///< a fault of the archive: number of the rule, text
    kDescription,   ///< a fault of the description: number of the rule, text
    kMore,          ///< more faults of the kind that came before: how many
    kFacts,         ///< texts: title, version, model, version of the system; numbers: entries,
                    ///< bytes that they unpack to, bytes of the description
    kUnpacked,      ///< the unpacked package: blocks, files and folders
    kProgram,       ///< a program: name, machine, class and order of bytes, kind of its numbers
    kFolder,        ///< a folder that a step makes: path
    kFile,          ///< a file that a step writes: path, 1 for a folder, name in that, bytes
    kFastFile,      ///< a file of the next kFast: path
    kFast,          ///< files that a script unpacks: path of their folder, KiB, number
    kDone,
};

// How much one message holds, and how many there are.

constexpr std::size_t kMostFaults = 20;          ///< of the archive, and of the description
constexpr std::size_t kLongestFault = 600;       ///< bytes of a text
constexpr std::size_t kLongestFact = 1024;       ///< likewise
constexpr std::size_t kLongestPath = 4095;       ///< of a file on the panel
constexpr std::uint64_t kMostTargets = 1U << 17; ///< of kFolder, kFile, kFastFile, kFast together

// The bits that a program's class and order of bytes are told by.
constexpr std::uint64_t kExam64Bit = 1;
constexpr std::uint64_t kExamBigEndian = 2;

/// What is asked.
struct ExamOrder {
    const Limits& limits;
    bool isTrusted = false;  ///< a signature covers the contents: they are not all unpacked
    std::uint64_t block = 1; ///< bytes of which each unpacked file takes a number
};

/// Looks into a package, and tells what is in it; to be done in a confinement. Of a trusted package
/// it reads the directory, the headers, the description and the beginnings of files.
/// @throws Error when the package cannot be read
void Examine(const archive::ByteSource& source, const ExamOrder& order, IMessages& messages);

} // namespace kx::guard
