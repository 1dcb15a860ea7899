// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets or removes an environment variable for the life of the object.
class Environment
{
public:
    Environment(std::string name, const char* value) : m_name(std::move(name))
    {
        if (const char* const before = std::getenv(m_name.c_str())) {
            m_before = before;
        }
        Set(value);
    }
    Environment(const Environment&) = delete;
    Environment& operator=(const Environment&) = delete;
    ~Environment() { Set(m_before.has_value() ? m_before->c_str() : nullptr); }

private:
    void Set(const char* value)
    {
        static_cast<void>(value == nullptr ? unsetenv(m_name.c_str())
                                           : setenv(m_name.c_str(), value, 1));
    }

    std::string m_name;
    std::optional<std::string> m_before;
};
