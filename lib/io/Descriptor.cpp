// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Descriptor.h"

#include <utility>

#include <unistd.h>

namespace kx::io
{

Descriptor::Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept
{
    std::swap(m_number, other.m_number);
    return *this;
}

Descriptor::~Descriptor()
{
    if (m_number >= 0) {
        static_cast<void>(close(m_number)); // only ever read
    }
}

std::string Descriptor::Path() const
{
    return "/proc/self/fd/" + std::to_string(m_number);
}

} // namespace kx::io
