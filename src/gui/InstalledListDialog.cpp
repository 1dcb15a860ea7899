// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/InstalledListDialog.h"

#include "engine/UserPackageInstaller.h"
#include "gui/AutoResize.h"
#include "gui/ui_InstalledListDialog.h"
#include "model/DB_KxUserProject.h"
#include "osa/OSA.h"
#include "osa/PanelNames.h"

#include <QFont>
#include <QString>

#include <string>

namespace
{

constexpr int kVersionColumn = 1;
constexpr int kVersionWidth = 120; // pixels

void SetCell(QTableWidget& table, int row, int column, const std::string& text)
{
    // The table takes over the item.
    table.setItem(row, column, new QTableWidgetItem(QString::fromUtf8(text.c_str())));
}

void AppendRow(QTableWidget& table, const DB_KxUserProject& project)
{
    const int row = table.rowCount();
    table.insertRow(row);
    SetCell(table, row, 0, project.Title);
    SetCell(table, row, kVersionColumn, project.PackageVersion);
    SetCell(table, row, 2, project.Comment);
}

void SetHeaderPointSize(QTableWidget& table, int points)
{
    AutoResize::SetPointSize(*table.horizontalHeader(), points);
    AutoResize::SetPointSize(*table.verticalHeader(), points);
    for (int column = 0; column < table.columnCount(); ++column) {
        QTableWidgetItem* const header = table.horizontalHeaderItem(column);
        auto font = header->data(Qt::FontRole).value<QFont>();
        font.setPointSize(points);
        header->setData(Qt::FontRole, font);
    }
}

} // namespace

InstalledListDialog::InstalledListDialog(QWidget* parent)
    : QDialog(parent), ui(std::make_unique<Ui_InstalledListDialog>())
{
    ui->setupUi(this);
    AutoResize::Scale(*ui->closeButton);
    AutoResize::Scale(*ui->dialogTitle);
    AutoResize::Scale(*ui->tableWidget);
}

InstalledListDialog::~InstalledListDialog() = default;

void InstalledListDialog::Onloaded()
{
    OSA_FindFile listing;
    for (const char* name = listing.FindFirst(PanelNames::kRegistry); name != nullptr;
         name = listing.Next()) {
        UserPackageInstaller package;
        package.projectFile =
            std::string(PanelNames::kRegistry) + "/" + name + "/" + PanelNames::kDescription;
        if (package.ReadRootOnlyKxProjectFile() == 0) {
            AppendRow(*ui->tableWidget, *package.Project());
        }
    }
}

void InstalledListDialog::resizeEvent(QResizeEvent* event)
{
    QDialog::resizeEvent(event);
    const int points = AutoResize::PointSizesFor(size()).small;
    AutoResize::SetPointSize(*ui->dialogTitle, points);
    AutoResize::SetPointSize(*ui->tableWidget, points);
    SetHeaderPointSize(*ui->tableWidget, points);
    ui->tableWidget->setColumnWidth(kVersionColumn, kVersionWidth);
    AutoResize::SetPointSize(*ui->closeButton, points);
}

void InstalledListDialog::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    if (!m_isLoaded) {
        m_isLoaded = true;
        Onloaded();
    }
}

void InstalledListDialog::on_closeButton_clicked()
{
    close();
}
