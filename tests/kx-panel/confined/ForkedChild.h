// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace kx::guard
{

/// The descriptor by which a child tells.
constexpr int kReport = 150;

/// Starts a child of the test's process, which only calls this and tells what it returns.
/// @return that, or "nothing told"
std::string InChild(const std::function<std::string()>& call);

/// Lets a system call fail from now on in this process, which can be done for a child only.
void LetCallFail(int call, int error);

/// Takes a capability from this process.
void DropCapability(unsigned capability);

/// Tells whether the process, which has children of tests only, has none left.
[[nodiscard]] bool HasNoChild();

} // namespace kx::guard
