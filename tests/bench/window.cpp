// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The least that GUI mode can cost up to its question: the commands of a file, one after the other,
// then a bare full-screen window with a log.
//
//   bench_window COMMANDS     a file of commands, each ended by a zero byte
#include <QApplication>
#include <QMainWindow>
#include <QPlainTextEdit>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <unistd.h>

int main(int argc, char** argv)
{
    // The commands may be dangerous anywhere but on the sandboxed device.
    if (argc != 2 || access("/.kx-device", F_OK) != 0) {
        std::fputs("usage, on the sandboxed device only: bench_window COMMANDS\n", stderr);
        return 2;
    }
    const std::string path = argv[1];
    const QApplication app(argc, argv);
    std::ifstream commands(path, std::ios::binary);
    for (std::string command; std::getline(commands, command, '\0');) {
        static_cast<void>(std::system(command.c_str()));
    }
    QMainWindow window;
    window.resize(800, 480);
    window.setCentralWidget(new QPlainTextEdit);
    window.showFullScreen();
    return QApplication::exec();
}
