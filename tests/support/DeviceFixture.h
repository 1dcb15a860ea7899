// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/EngineFixture.h"

/// A test that writes to the device's fixed paths. It ends the test binary anywhere but on the
/// sandboxed device.
class DeviceFixture : public EngineFixture
{
public:
    /// Tells whether this process runs on the sandboxed device.
    [[nodiscard]] static bool IsOnDevice();

protected:
    DeviceFixture();
};
