// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define KX_LOOKS_FOR_LEAKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KX_LOOKS_FOR_LEAKS 1
#endif
#endif

#ifdef KX_LOOKS_FOR_LEAKS
#include <sanitizer/lsan_interface.h>
#endif

/// Tells a build that looks for leaks that @p object is left on purpose until the process ends,
/// with all that it holds; null is nobody. The object may be destroyed all the same. In any other
/// build this is nothing.
inline void OSA_Abandon([[maybe_unused]] const void* object)
{
#ifdef KX_LOOKS_FOR_LEAKS
    __lsan_ignore_object(object);
#endif
}
