// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "journal/StateFolder.h"

#include <string>

namespace kx::guard
{

/// The folder in which the updater writes and runs its scripts, while this process lets it. It lies
/// where everybody may make files, so whatever has its name is taken away first: a link, never what
/// it leads to; a folder with all that is in it.
class StepFolder
{
public:
    /// Makes the folder anew, root's alone (mode 700).
    /// @param path  full; a '/' at its end does not matter
    /// @throws Error when it cannot be made, or when others could replace it: the folder above
    ///         belongs to somebody else, or everybody may rename what is in it
    explicit StepFolder(const std::string& path);
    StepFolder(const StepFolder&) = delete;
    StepFolder& operator=(const StepFolder&) = delete;
    /// Removes it with all that is in it.
    ~StepFolder();

    /// Leaves it where it is: something in it still runs.
    void Keep() { m_isKept = true; }

    /// Removes a folder of that name, which an earlier installation left.
    /// @throws Error when that fails
    static void Remove(const std::string& path);

private:
    StateFolder m_above;
    std::string m_name;
    bool m_isKept = false;
};

} // namespace kx::guard
