// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

namespace kx::guard
{

/// Tells whether the address sanitizer watches the program, for tests. Its shadow takes terabytes
/// of address space, and it makes more system calls than programs do, a pipe of its own among them:
/// so much is let through then, and nothing else is different.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kIsSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif
#else
constexpr bool kIsSanitized = false;
#endif

} // namespace kx::guard
