// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "cli/Output.h"

namespace kx::tool
{

using cli::Colour;
using cli::Coloured;
using cli::JsonNumber;
using cli::JsonText;
using cli::JsonTexts;
using cli::Output;
using cli::SerializedJson;
using cli::WriteJson;

} // namespace kx::tool
