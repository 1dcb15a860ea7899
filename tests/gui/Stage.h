// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "engine/ILogger.h"
#include "gui/mainwindow.h"
#include "support/PanelFiles.h"
#include "support/ProjectBuilder.h"
#include "support/ShellRecorder.h"

#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QStringList>
#include <QTabWidget>

#include <functional>
#include <memory>
#include <string>
#include <vector>

class InstalledListDialog;

/// How long a test waits for an event before it fails.
constexpr int kPatienceMs = 20000;

/// The UTF-8 text @p text.
inline QString Text(const std::string& text)
{
    return QString::fromStdString(text);
}

/// A list of UTF-8 texts.
inline QStringList List(const std::vector<std::string>& texts)
{
    QStringList list;
    for (const std::string& text : texts) {
        list.append(Text(text));
    }
    return list;
}

/// What a window test plays on: a panel with a drive, a shell that only records, a window that is
/// not shown yet, and a logger that leads to it. Messages are untranslated.
class Stage
{
public:
    Stage();
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;
    ~Stage();

    ShellRecorder shell;
    PanelFiles panel;
    TempDir drive;

    /// The description that unpacking a package leaves; no file when it is empty.
    std::string description = ProjectBuilder::File(ProjectBuilder::Root());

    /// The instructions for the fake updater that unpacking a package leaves. Set before Show.
    std::vector<std::string> script;

    /// Puts a package on the drive. Its unzip command leaves the description and the updater.
    /// @return its path without the extension
    std::string PutPackage(const std::string& name = "Foo");

    /// Shows the window, which starts its work.
    void Show();

    /// Shows the window with one package on the drive and presses Install.
    void Install();

    /// Presses the button @p name with the mouse, as a user does.
    void Press(const char* name) const;

    /// What the user sees: "message / colour / buttons / front tab / panel or no panel".
    [[nodiscard]] QString State() const;

    [[nodiscard]] QString Log() const { return Get<QPlainTextEdit>("logArea")->toPlainText(); }

    /// The commands so far.
    [[nodiscard]] QStringList Commands() const { return List(shell.Commands()); }

    /// The commands so far, but for those that unpack.
    [[nodiscard]] QStringList CommandsAfterUnpacking() const;

    template <typename T>
    [[nodiscard]] T* Get(const char* name) const
    {
        return window->findChild<T*>(QLatin1String(name));
    }

    /// Ends the window, as the end of the program does.
    void Close() { window.reset(); }

    /// Presses the button of the installed list, calls @p look with the list open, and closes it.
    void OpenList(const std::function<void(InstalledListDialog&)>& look) const;

    std::unique_ptr<MainWindow> window;

private:
    class WindowLogger final : public ILogger
    {
    public:
        [[gnu::format(printf, 2, 3)]] void OutLine(const char* format, ...) override;
        void OutMsg(const char* text) override;
    };

    WindowLogger m_logger;
};
