// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace kx::io
{

/// An open file or folder, closed at its end.
class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : m_number(number) {}
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor();

    [[nodiscard]] bool IsOpen() const { return m_number >= 0; }
    [[nodiscard]] int Number() const { return m_number; }

    /// A path under which the open file can be opened once more, whatever has become of its name.
    [[nodiscard]] std::string Path() const;

private:
    int m_number = -1;
};

} // namespace kx::io
