// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/mainwindow.h"

#include "app/Globals.h"
#include "engine/ILogger.h"
#include "engine/Installation.h"
#include "engine/q_UpdaterEngine.h"
#include "gui/AutoResize.h"
#include "gui/InstallProcss.h"
#include "gui/InstalledListDialog.h"
#include "gui/LogLayout.h"
#include "gui/ui_mainwindow.h"
#include "model/DB_KxUserProject.h"

#include <QCoreApplication>
#include <QTextCursor>
#include <QTimer>

#include <array>
#include <string>

namespace
{

enum Tab : int { kMainTab, kLogTab };

constexpr const char* kMessageStyle = "* {background-color : rgb(199, 253, 255)}";
constexpr const char* kErrorStyle = "* {background-color : rgb(255, 85, 127)}";
constexpr int kDrivePollMs = 1500;

/// Makes the log area cheap to append to. What it shows stays the same.
void PrepareLogArea(QPlainTextEdit& area)
{
    LogLayout::Install(area);
    // Nobody can undo in a log; the history would hold all of it once more.
    area.setUndoRedoEnabled(false);
    // The style sheet's background is opaque, which Qt does not see: without this every scroll
    // paints the tab, the window and all between them first.
    area.setAutoFillBackground(true);
    for (QWidget* const part : area.findChildren<QWidget*>()) {
        part->setAutoFillBackground(true);
    }
}

/// Unpacks the package that the options found and reads the root of its description.
/// @return false when one of them failed
bool LoadPackage()
{
    G::Opts.unzipedDir = Installation::UnpackedFolder(G::Opts.upFile); // the child's, too
    return Installation::OpenPackage(G::TargetUP, G::Opts.upFile) == 0;
}

/// Brings a window to the screen as it is now, without letting a timer or the user do anything.
void BringToScreen(QWidget& window)
{
    window.repaint();
    // What is painted gets to a framebuffer by an event that its screen posts to itself.
    QCoreApplication::sendPostedEvents();
}

} // namespace

MainWindow::MainWindow(QWidget* parent) : QMainWindow(parent), ui(std::make_unique<Ui_MainWindow>())
{
    ui->setupUi(this);
    PrepareLogArea(*ui->logArea);
    connect(this, &MainWindow::SignOutMsg, this, &MainWindow::SlotOutMsg);
    connect(this, &MainWindow::SignOutLine, this, &MainWindow::SlotOutLine);
    connect(this, &MainWindow::SignInstallFinished, this, &MainWindow::SlotInstallFinished);
}

MainWindow::~MainWindow()
{
    m_installProcess.reset(); // before the widgets that its last words would go to
}

void MainWindow::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    if (!m_isLoaded) {
        m_isLoaded = true;
        Onloaded();
    }
}

void MainWindow::Onloaded()
{
    ScaleToScreen();
    QString errorText;
    if (G::Opts.ComformUpPath(errorText) == 0) {
        ErrorEndApp(errorText);
        return;
    }
    if (!LoadPackage()) {
        ErrorEndApp(QObject::tr("ER_MSG04"));
        return;
    }
    ShowPackage();
    setMessage(QObject::tr("ER_MSG01"));
    ui->InstallButton->setVisible(true);
    ui->CancelButton->setVisible(true);
    ui->RebootButton->setVisible(false);
    ui->OkButton->setVisible(false);
}

void MainWindow::ScaleToScreen()
{
    AutoResize::TakeScreenScale(*this);
    const std::array<QWidget*, 15> widgets = {ui->InstalledListButton,
                                              ui->tabsCenter,
                                              ui->CancelButton,
                                              ui->InstallButton,
                                              ui->OkButton,
                                              ui->RebootButton,
                                              ui->appTitle,
                                              ui->labelComment,
                                              ui->labelMsg,
                                              ui->labelVersion,
                                              ui->textComment,
                                              ui->textTitle,
                                              ui->textVersion,
                                              ui->labelTitle,
                                              ui->logArea};
    for (QWidget* const widget : widgets) {
        AutoResize::Scale(*widget);
    }
    FitTexts();
}

void MainWindow::ShowPackage()
{
    const DB_KxUserProject& project = *G::TargetUP.Project();
    // The labels show the description's bytes as Latin-1, unlike the log.
    ui->textTitle->setText(QString::fromLatin1(project.Title.c_str()));
    ui->textVersion->setText(QString::fromLatin1(project.PackageVersion.c_str()));
    ui->textComment->setText(QString::fromLatin1(project.Comment.c_str()));
}

void MainWindow::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    const AutoResize::PointSizes points = AutoResize::PointSizesFor(size());
    const std::array<QWidget*, 2> large = {ui->appTitle, ui->labelMsg};
    for (QWidget* const widget : large) {
        AutoResize::SetPointSize(*widget, points.large);
    }
    const std::array<QWidget*, 12> small = {
        ui->OkButton,      ui->CancelButton,        ui->RebootButton,
        ui->InstallButton, ui->InstalledListButton, ui->labelTitle,
        ui->textTitle,     ui->labelComment,        ui->textComment,
        ui->labelVersion,  ui->textVersion,         ui->logArea};
    for (QWidget* const widget : small) {
        AutoResize::SetPointSize(*widget, points.small);
    }
    FitTexts();
}

void MainWindow::FitTexts()
{
    const std::array<QLabel*, 7> labels = {ui->appTitle,     ui->labelTitle,  ui->textTitle,
                                           ui->labelVersion, ui->textVersion, ui->labelComment,
                                           ui->textComment};
    for (QLabel* const label : labels) {
        AutoResize::KeepTails(*label);
    }
    AutoResize::FitCaptions(*ui->tabsCenter->tabBar());
}

void MainWindow::on_InstallButton_clicked()
{
    ui->InstallButton->setVisible(false);
    ui->CancelButton->setVisible(false);
    ui->RebootButton->setVisible(false);
    ui->OkButton->setVisible(false);
    setMessage(QObject::tr("ER_MSG10_INSTALL_START"));

    m_installProcess = std::make_unique<InstallProcss>(nullptr);
    m_installProcess->owner = this;
    const std::string program = !G::Opts.updaterPath.empty()
                                    ? G::Opts.updaterPath
                                    : Installation::PackagedUpdater(G::Opts.unzipedDir);
    std::array<const char*, 2> arguments = {"-unzipedDir", G::Opts.unzipedDir.c_str()};
    if (!m_installProcess->Start(program.c_str(), static_cast<int>(arguments.size()),
                                 arguments.data())) {
        q_UpdaterEngine::SysLogger->OutLine("Cannot start : %s %s %s", program.c_str(),
                                            arguments[0], arguments[1]);
        Q_EMIT SignInstallFinished(-1);
    }
}

void MainWindow::on_CancelButton_clicked()
{
    WaitForReboot();
}

void MainWindow::on_InstalledListButton_clicked()
{
    const int index = ui->tabsCenter->currentIndex();
    InstalledListDialog dialog(nullptr);
    dialog.showFullScreen();
    dialog.exec();
    // The reader's messages about damaged records have brought the log to the front.
    ui->tabsCenter->setCurrentIndex(index);
}

void MainWindow::on_OkButton_clicked()
{
    WaitForReboot();
}

void MainWindow::on_RebootButton_clicked()
{
    HidePanel();
    setMessage(QObject::tr("ER_MSG92_REBOOTING"));
    BringToScreen(*this); // nothing is painted any more once the command has begun
    Installation::Reboot();
}

void MainWindow::onCheckUSBTimeout()
{
    ui->RebootButton->setVisible(!Installation::IsDrivePluggedIn());
    QTimer::singleShot(kDrivePollMs, this, SLOT(onCheckUSBTimeout()));
}

void MainWindow::SlotOutMsg(const char* text)
{
    m_logText += QString::fromUtf8(text);
    dispLog();
}

void MainWindow::SlotOutLine(const char* text)
{
    m_logText += QString::fromUtf8(text) + QLatin1Char('\n');
    dispLog();
}

void MainWindow::SlotInstallFinished(int exitCode)
{
    Cleanup();
    if (exitCode != 0) {
        setErrorMessage(QObject::tr("ER_MSG91"));
    } else {
        setMessage(QObject::tr("ER_MSG90"));
    }
    ui->OkButton->setVisible(true);
}

void MainWindow::HidePanel()
{
    const std::array<QWidget*, 10> widgets = {
        ui->labelTitle,  ui->textTitle,     ui->labelVersion, ui->textVersion,  ui->labelComment,
        ui->textComment, ui->InstallButton, ui->CancelButton, ui->RebootButton, ui->OkButton};
    for (QWidget* const widget : widgets) {
        widget->setVisible(false);
    }
}

void MainWindow::Cleanup()
{
    if (m_isCleanupPending) {
        Installation::LeaveDrive(G::TargetUP);
        m_isCleanupPending = false;
    }
}

void MainWindow::setTabsCenter(int index)
{
    if (ui->tabsCenter->currentIndex() != index) {
        ui->tabsCenter->setCurrentIndex(index);
    }
}

void MainWindow::dispLog()
{
    int start = m_shownLength;
    // A pair of carriage return and line feed breaks the line once, also when it comes in two
    // pieces: the carriage return has done it.
    if (start > 0 && start < m_logText.size() && m_logText.at(start - 1) == QLatin1Char('\r') &&
        m_logText.at(start) == QLatin1Char('\n')) {
        ++start;
    }
    QTextCursor end(ui->logArea->document());
    end.movePosition(QTextCursor::End);
    end.insertText(m_logText.mid(start));
    m_shownLength = m_logText.size();

    QTextCursor cursor = ui->logArea->textCursor();
    cursor.movePosition(QTextCursor::End);
    ui->logArea->setTextCursor(cursor);
    setTabsCenter(kLogTab);
}

void MainWindow::setMessage(const QString& text, const char* styleSheet)
{
    ui->labelMsg->setStyleSheet(QString::fromLatin1(styleSheet));
    ui->labelMsg->setText(text);
    setTabsCenter(kMainTab);
}

void MainWindow::setMessage(const QString& text)
{
    setMessage(text, kMessageStyle);
}

void MainWindow::setErrorMessage(const QString& text)
{
    setMessage(text, kErrorStyle);
}

void MainWindow::ErrorEndApp(const QString& text)
{
    HidePanel();
    Cleanup();
    ui->OkButton->setVisible(true);
    setErrorMessage(text);
}

void MainWindow::WaitForReboot()
{
    Cleanup();
    HidePanel();
    setMessage(QObject::tr("ER_MSG99"));
    onCheckUSBTimeout();
}
