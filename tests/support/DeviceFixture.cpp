// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "support/DeviceFixture.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

bool DeviceFixture::IsOnDevice()
{
    return access("/.kx-device", F_OK) == 0;
}

DeviceFixture::DeviceFixture()
{
    if (!IsOnDevice()) {
        std::fputs(
            "This test writes to the device's paths: start it with tests/support/on-device.\n",
            stderr);
        std::abort();
    }
}
