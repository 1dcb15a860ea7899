// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The application of the machine: fills the screen and says its version, which stands in the file
// `version` beside the program.

#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QLabel>
#include <QString>

namespace
{

QString ReadVersion()
{
    QFile file(QDir(QCoreApplication::applicationDirPath()).filePath(QStringLiteral("version")));
    if (!file.open(QIODevice::ReadOnly)) {
        return QStringLiteral("unknown");
    }
    return QString::fromUtf8(file.readAll()).trimmed();
}

} // namespace

int main(int argc, char* argv[])
{
    const QApplication application(argc, argv);
    QLabel label(QStringLiteral("Machine application\nversion %1").arg(ReadVersion()));
    label.setAlignment(Qt::AlignCenter);
    label.setStyleSheet(QStringLiteral("background: #204a87; color: white; font-size: 32px"));
    label.showFullScreen();
    return QApplication::exec();
}
