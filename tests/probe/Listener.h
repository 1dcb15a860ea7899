// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "support/TempDir.h"

#include <QByteArray>
#include <QJsonObject>
#include <QList>

#include <mutex>
#include <string>
#include <thread>

/// A socket that one program connects to, and all that it says, line by line. It is read beside the
/// event loop, as the program may wait for it.
class Listener
{
public:
    /// @param pathLength  how long the socket's path is, in bytes; 0 for any
    explicit Listener(std::size_t pathLength = 0);
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener();

    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// Takes the connection of the program, which must have been made, and listens.
    void Accept();

    /// Sends bytes to the program.
    void Ask(const QByteArray& bytes) const;

    /// Ends the connection.
    void Leave();

    [[nodiscard]] QList<QByteArray> Lines() const; ///< all of them so far
    [[nodiscard]] QJsonObject State() const;       ///< the last one that is no answer
    [[nodiscard]] int Answers() const;             ///< the number of the last answer; 0 before
    [[nodiscard]] bool IsOver() const;             ///< whether the program has let go

private:
    void Read();

    TempDir m_folder;
    std::string m_path;
    int m_server;
    int m_link = -1;
    std::thread m_reader;
    mutable std::mutex m_guard; ///< of what follows
    QByteArray m_said;
    bool m_isOver = false;
};
