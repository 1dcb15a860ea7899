// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// Where the engine's messages go. The run modes implement it; everything else reaches it through
/// q_UpdaterEngine::SysLogger. Loggers are never deleted through this interface.
class ILogger
{
public:
    ILogger() = default;
    ILogger(const ILogger&) = delete;
    ILogger& operator=(const ILogger&) = delete;

    /// Writes a printf-style line of any length and appends one line break.
    [[gnu::format(printf, 2, 3)]] virtual void OutLine(const char* format, ...) = 0;

    /// Writes @p text as it stands.
    virtual void OutMsg(const char* text) = 0;

protected:
    ~ILogger() = default;
};
