// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "commands/FindingsText.h"
#include "common/Output.h"
#include "stick/Drive.h"
#include "stick/DriveCopy.h"
#include "stick/DrivePlan.h"

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace kx::tool
{

/// What came of bringing a package to a drive.
struct StickReport {
    std::string name;                ///< of the package's file
    std::vector<std::string> doubts; ///< whether a panel can read the drive
    DrivePlan plan;                  ///< empty when the package has problems
    std::set<std::string> removed;   ///< paths of what was removed from the drive
    bool isWritten = false;          ///< false: the drive had the file already, or nothing was done
    std::optional<ReadBack> readBack; ///< where the bytes came from; nothing: it is not there
};

/// Tells as text, before anything is written, what is wrong and in doubt.
void TellBeforeSticking(const Output& output, const Drive& drive, const Checked& checked,
                        const StickReport& report);

/// Tells the end as text: that the drive may be pulled, or that nothing was written.
void TellStick(const Output& output, const Drive& drive, const StickReport& report);

/// Writes all of it as one JSON document.
void TellStickAsJson(const Output& output, const Drive& drive, const Checked& checked,
                     const StickReport& report);

} // namespace kx::tool
