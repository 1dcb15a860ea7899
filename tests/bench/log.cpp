// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Times what a chatty child costs the window, against a bare log area that gets the same text.
//
//   bench_log window|bare CHUNKS
//
// Prints the cpu seconds of the first and of the last tenth of the chunks and of all, the peak of
// the process's memory in KiB, and the size of the log area. Each chunk is shown before the next
// comes.
#include "app/Globals.h"
#include "gui/mainwindow.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QScreen>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace
{

using Append = std::function<void(const char* chunk)>;

double CpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    constexpr double kNano = 1e-9;
    return static_cast<double>(now.tv_sec) + kNano * static_cast<double>(now.tv_nsec);
}

std::string Chunk(int number)
{
    return "**** Installation step " + std::to_string(number) + "/10000\n" +
           "    copying /mnt/user/share/some/folder/with/files/file" + std::to_string(number) +
           "\n";
}

void Measure(int chunks, const QPlainTextEdit& area, const Append& append)
{
    std::vector<double> times = {CpuSeconds()};
    for (int i = 0; i < chunks; ++i) {
        append(Chunk(i).c_str());
        QCoreApplication::processEvents();
        times.push_back(CpuSeconds());
    }
    const auto count = static_cast<std::size_t>(chunks);
    const std::size_t tenth = count / 10;
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%.6f %.6f %.6f %ld %dx%d\n", times[tenth] - times[0],
                times[count] - times[count - tenth], times[count] - times[0], usage.ru_maxrss,
                area.width(), area.height());
}

void MeasureWindow(int chunks)
{
    MainWindow window(nullptr);
    G::MainWin = &window;
    window.showFullScreen(); // finds no package, which ends its part of the work
    QCoreApplication::processEvents();
    const auto* const area = window.findChild<QPlainTextEdit*>();
    Measure(chunks, *area, [&window](const char* chunk) { Q_EMIT window.SignOutLine(chunk); });
}

void MeasureBare(int chunks)
{
    QMainWindow window;
    window.resize(800, 480);
    auto* const area = new QPlainTextEdit(&window);
    // As the panel's log area has them: of the design size and stretched to the screen.
    const QSize screen = QGuiApplication::primaryScreen()->size();
    area->setGeometry(10, 10, 761 * screen.width() / 800, 351 * screen.height() / 480);
    QFont font = area->font();
    font.setPointSize(18);
    area->setFont(font);
    area->setReadOnly(true);
    area->setUndoRedoEnabled(false);
    window.showFullScreen();
    QCoreApplication::processEvents();
    Measure(chunks, *area, [area](const char* chunk) {
        area->appendPlainText(QString::fromUtf8(chunk));
        area->moveCursor(QTextCursor::End);
    });
}

} // namespace

int main(int argc, char** argv)
{
    const std::string_view what = argc == 3 ? argv[1] : "";
    // The window runs commands when it finds no package.
    if ((what != "window" && what != "bare") || access("/.kx-device", F_OK) != 0) {
        std::fputs("usage, on the sandboxed device only: bench_log window|bare CHUNKS\n", stderr);
        return 2;
    }
    const int chunks = std::atoi(argv[2]);
    const QApplication app(argc, argv);
    if (what == "window") {
        MeasureWindow(chunks);
    } else {
        MeasureBare(chunks);
    }
    return 0;
}
