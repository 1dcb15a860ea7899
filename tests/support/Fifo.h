// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/TempDir.h"

#include <string>

/// A FIFO whose reader is a child of the test: it waits there until it is let go, or keeps the FIFO
/// open as long as it lives.
class Fifo
{
public:
    explicit Fifo(const TempDir& dir, const std::string& name = "fifo");
    Fifo(const Fifo&) = delete;
    Fifo& operator=(const Fifo&) = delete;
    /// Lets the reader go on.
    ~Fifo() { Release(); }

    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Takes the writing end, which makes the reader wait.
    /// @return false when there is no reader yet
    [[nodiscard]] bool Take();

    /// Takes the writing end once there is a reader. This thread stands still until then.
    void Await();

    /// Gives the writing end back, so that the reader goes on.
    void Release();

    /// Tells whether the FIFO has a reader. The writing end must be taken.
    [[nodiscard]] bool HasReader() const { return !WaitForNoReader(0); }

    /// Waits for the end of the last reader. This thread stands still until then.
    /// @return false when a reader is left after half a minute
    [[nodiscard]] bool AwaitEnd() const;

private:
    [[nodiscard]] bool WaitForNoReader(int waitMs) const;

    std::string m_path;
    int m_fd = -1;
};
