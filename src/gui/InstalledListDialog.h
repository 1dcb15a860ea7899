// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>

#include <memory>

class Ui_InstalledListDialog;

/// Shows the packages that are recorded as installed on the panel, a row each.
///
/// The records are read once, at the first show. One that cannot be read has no row; the reader's
/// message about it goes to the engine's logger.
class InstalledListDialog : public QDialog
{
    Q_OBJECT

public:
    /// Scales the form by the main window's factors, so the window must have been shown before.
    explicit InstalledListDialog(QWidget* parent);
    InstalledListDialog(const InstalledListDialog&) = delete;
    InstalledListDialog& operator=(const InstalledListDialog&) = delete;
    ~InstalledListDialog() override;

    /// Fills the table; called at the first show.
    /// @throws std::runtime_error when a description's root value is no JSON object
    virtual void Onloaded();

protected:
    void resizeEvent(QResizeEvent* event) override;
    void showEvent(QShowEvent* event) override;

private Q_SLOTS:
    void on_closeButton_clicked();

private:
    std::unique_ptr<Ui_InstalledListDialog> ui;
    bool m_isLoaded = false;
};
