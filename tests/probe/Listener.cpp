// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "probe/Listener.h"

#include <QJsonDocument>

#include <array>
#include <cstring>
#include <stdexcept>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

Listener::Listener(std::size_t pathLength)
    : m_path(m_folder / "p"), m_server(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    if (pathLength > m_path.size()) {
        m_path.append(pathLength - m_path.size(), 'p');
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    // The longest path leaves no room for the zero behind it.
    std::memcpy(address.sun_path, m_path.data(), m_path.size());
    if (bind(m_server, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(m_server, 1) != 0) {
        throw std::runtime_error("no socket at " + m_path);
    }
}

Listener::~Listener()
{
    Leave();
    close(m_server);
}

void Listener::Accept()
{
    m_link = accept4(m_server, nullptr, nullptr, SOCK_CLOEXEC);
    m_reader = std::thread([this] { Read(); });
}

void Listener::Read()
{
    std::array<char, 4096> bytes = {};
    ssize_t count = 0;
    while ((count = read(m_link, bytes.data(), bytes.size())) > 0) {
        const std::lock_guard<std::mutex> lock(m_guard);
        m_said.append(bytes.data(), static_cast<int>(count));
    }
    const std::lock_guard<std::mutex> lock(m_guard);
    m_isOver = true;
}

void Listener::Ask(const QByteArray& bytes) const
{
    const auto size = static_cast<std::size_t>(bytes.size());
    if (send(m_link, bytes.constData(), size, MSG_NOSIGNAL) != bytes.size()) {
        throw std::runtime_error("nobody takes the request");
    }
}

void Listener::Leave()
{
    if (m_link < 0) {
        return;
    }
    shutdown(m_link, SHUT_RDWR);
    m_reader.join();
    close(m_link);
    m_link = -1;
}

QList<QByteArray> Listener::Lines() const
{
    const std::lock_guard<std::mutex> lock(m_guard);
    QList<QByteArray> lines = m_said.split('\n');
    lines.removeLast(); // has no end yet
    return lines;
}

QJsonObject Listener::State() const
{
    const QList<QByteArray> lines = Lines();
    for (int i = lines.size() - 1; i >= 0; --i) {
        QJsonObject told = QJsonDocument::fromJson(lines[i]).object();
        if (!told.contains(QStringLiteral("sync"))) {
            return told;
        }
    }
    return {};
}

int Listener::Answers() const
{
    const QList<QByteArray> lines = Lines();
    for (int i = lines.size() - 1; i >= 0; --i) {
        const QJsonObject told = QJsonDocument::fromJson(lines[i]).object();
        if (told.contains(QStringLiteral("sync"))) {
            return told[QStringLiteral("sync")].toInt();
        }
    }
    return 0;
}

bool Listener::IsOver() const
{
    const std::lock_guard<std::mutex> lock(m_guard);
    return m_isOver;
}
