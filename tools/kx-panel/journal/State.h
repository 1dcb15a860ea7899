// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Descriptor.h"
#include "io/Error.h"
#include "journal/StateFolder.h"
#include "panel/Names.h"
#include "policy/Guarded.h"

#include <functional>
#include <optional>
#include <string>

namespace kx::guard
{

/// Where a panel remembers, and what must hold there; a test hands in others.
struct StatePlace {
    std::string folder; ///< plain full path
    std::string writeProtectOff = panel::kWriteProtectOff;
    std::function<void(const std::string& path)> refuseUnguarded = [](const std::string& path) {
        RefuseUnguarded(path, GuardedKind::kEither);
    };
};

/// Tells that another installation is at work: its starter holds the lock, or an installer goes on
/// whose starter is gone. Nothing was changed.
class Busy final : public io::Error
{
public:
    explicit Busy(const std::string& where, const std::string& what, const std::string& remedy)
        : Error(io::ExitCode::kUnknown, where, what, remedy)
    {
    }
};

/// The folder of what a panel remembers, while this process may change it: there is one such
/// process at a time.
class State
{
public:
    /// Opens the folder, makes it (mode 700) when it is missing, and takes its lock. Where it lies
    /// on a file system that is write-protected, the panel's tool lifts that first.
    /// @throws Busy at once when another process has the lock, or its installer still runs
    /// @throws Error when the folder or what is above it is a link, belongs to somebody else, can
    ///         be changed by others, or cannot be written
    explicit State(const StatePlace& place);

    [[nodiscard]] const StateFolder& Folder() const { return m_folder; }

    /// The file whose lock tells the next start that an installer still runs: who starts one takes
    /// its lock, and lets it inherit an open descriptor of it. It is locked as long as one of those
    /// is open.
    [[nodiscard]] io::Descriptor LockForInstaller() const;

    /// Forgets that lock: the installation has come to its end, whatever it left running.
    void ForgetInstaller() const;

private:
    StateFolder m_folder;
    io::Descriptor m_lock;
};

/// Opens the folder to read it; nothing when it is not there.
/// @throws Error as State
[[nodiscard]] std::optional<StateFolder> OpenStateToRead(const StatePlace& place);

/// Tells whether an installation is at work: a process has the lock, or an installer runs.
/// @throws Error when that cannot be told
[[nodiscard]] bool IsAtWork(const StateFolder& folder);

} // namespace kx::guard
