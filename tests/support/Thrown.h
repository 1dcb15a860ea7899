// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <string>

/// Returns "code: line" of the Error that the call throws, or "nothing thrown".
template <class Call>
std::string Thrown(Call call)
{
    try {
        call();
    } catch (const kx::io::Error& error) {
        return std::to_string(static_cast<int>(error.Code())) + ": " + error.Line();
    }
    return "nothing thrown";
}
