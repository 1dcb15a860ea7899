// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QMainWindow>
#include <QString>

#include <memory>

class InstallProcss;
class Ui_MainWindow;

/// The one window of GUI mode. It carries an installation from the package on the USB flash drive
/// to the reboot: find, unpack, show, ask, install through a child process, report, clean up, wait
/// for the drive's removal.
///
/// It works on G::Opts and G::TargetUP and starts at its first show. No failure ends the program:
/// each is shown, and every road leads to the reboot button.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget* parent);
    MainWindow(const MainWindow&) = delete;
    MainWindow& operator=(const MainWindow&) = delete;
    /// Kills a child that still runs.
    ~MainWindow() override;

Q_SIGNALS:
    void SignOutMsg(const char* text);      ///< text for the log, as it stands
    void SignOutLine(const char* text);     ///< text for the log, a line break is added
    void SignInstallFinished(int exitCode); ///< the child ended; -1: it failed as a process

protected:
    /// Finds, unpacks and shows the package, or says why not. Called once, inside the first show.
    /// @throws std::runtime_error when the description's root value is no JSON object
    virtual void Onloaded();

    void showEvent(QShowEvent* event) override;

private Q_SLOTS:
    void on_InstallButton_clicked();
    void on_CancelButton_clicked();
    void on_InstalledListButton_clicked();
    void on_OkButton_clicked();
    void on_RebootButton_clicked();
    /// Offers the reboot while the drive is absent, and looks again after a while, forever.
    void onCheckUSBTimeout();
    void resizeEvent(QResizeEvent* event) override;
    void SlotOutMsg(const char* text);
    void SlotOutLine(const char* text);
    void SlotInstallFinished(int exitCode);

private:
    void ScaleToScreen();

    /// Brings into sight what the labels and tabs can show of their texts.
    void FitTexts();

    void ShowPackage();

    /// Hides everything that belongs to one package and every button of the flow.
    void HidePanel();

    /// Deletes the unpacked package and unmounts the drive, the first time it is called.
    void Cleanup();

    void setTabsCenter(int index);

    /// Brings the part of the log text that is not shown yet into the log area, scrolls to its end
    /// and brings the log to the front. Costs the same however long the log is.
    void dispLog();

    /// Shows @p text in the message area and brings the main tab to the front.
    void setMessage(const QString& text, const char* styleSheet);
    void setMessage(const QString& text);
    void setErrorMessage(const QString& text);

    /// Ends the installation, not the program, with an error message.
    void ErrorEndApp(const QString& text);

    void WaitForReboot();

    QString m_logText; ///< all that arrived for the log; never trimmed
    std::unique_ptr<InstallProcss> m_installProcess;
    bool m_isLoaded = false;
    bool m_isCleanupPending = true;
    std::unique_ptr<Ui_MainWindow> ui;
    int m_shownLength = 0; ///< how much of m_logText the log area shows
};
