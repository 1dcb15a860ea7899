// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/ILogger.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// A logger that formats every line, so that a bad argument shows, and drops it.
class SilentLogger final : public ILogger
{
public:
    [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override;
    void OutMsg(const char* text) override;
};

/// Tells whether a description is nested no deeper than the fuzzers follow. Lists in lists are
/// read 2^depth times by design, so depth is the one thing that must be capped.
[[nodiscard]] bool IsShallow(const std::uint8_t* data, std::size_t size);

/// A file that lives in memory only.
class MemoryFile
{
public:
    MemoryFile(const std::uint8_t* data, std::size_t size);
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile();

    /// A path by which this process can open the file.
    [[nodiscard]] const std::string& Path() const { return m_path; }

private:
    int m_fd;
    std::string m_path;
};
