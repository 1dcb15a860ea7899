// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// What the list of the installed packages shows.
#include "gui/InstalledListDialog.h"
#include "gui/InstalledTable.h"
#include "gui/Stage.h"

#include <QTableWidget>
#include <QTest>

#include <stdexcept>

using ProjectBuilder::File;
using ProjectBuilder::Root;

namespace
{

/// A description with three texts to be shown.
std::string Description(const std::string& title, const std::string& version,
                        const std::string& comment)
{
    ProjectBuilder::Object root = Root();
    root["Title"] = ProjectBuilder::Text(title);
    root["PackageVersion"] = ProjectBuilder::Text(version);
    root["Comment"] = ProjectBuilder::Text(comment);
    return File(root);
}

/// The rows of the table: "title|version|comment".
QStringList Rows(const InstalledListDialog& dialog)
{
    const QTableWidget& table = TableOf(dialog);
    QStringList rows;
    for (int row = 0; row < table.rowCount(); ++row) {
        QStringList cells;
        for (int column = 0; column < table.columnCount(); ++column) {
            const auto* const item = table.item(row, column);
            cells.append(item != nullptr ? item->text() : QStringLiteral("(none)"));
        }
        rows.append(cells.join(QLatin1Char('|')));
    }
    return rows;
}

/// Gives access to what the program's own code calls.
class OpenDialog final : public InstalledListDialog
{
public:
    OpenDialog() : InstalledListDialog(nullptr) {}

    void Onloaded() override
    {
        ++calls;
        InstalledListDialog::Onloaded();
    }

    int calls = 0;
};

} // namespace

class tst_InstalledListDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void withoutTheFolderThereAreOnlyTheHeaders();
    void emptyFolderGivesAnEmptyTable();
    void rowsStandInTheOrderOfTheFolder();
    void brokenRecordsGiveNoRowAndNoGap();
    void plainFilesGiveNoRow();
    void cellsAreUtf8();
    void readsOnlyTheRootOfTheDescription();
    void hundredsOfRecords();
    void rootThatIsNoObjectEndsTheFilling();
    void fillsTheTableOnceHoweverOftenItIsShown();
    void secondDialogReadsTheFolderAgain();
};

void tst_InstalledListDialog::withoutTheFolderThereAreOnlyTheHeaders()
{
    Stage stage;
    stage.panel.RemoveRecords();
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), QStringList());
    QCOMPARE(TableOf(dialog).columnCount(), 3);
    QCOMPARE(stage.Log(), QString());
}

void tst_InstalledListDialog::emptyFolderGivesAnEmptyTable()
{
    const Stage stage;
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), QStringList());
    QCOMPARE(stage.Log(), QString());
}

void tst_InstalledListDialog::rowsStandInTheOrderOfTheFolder()
{
    Stage stage;
    for (const std::string name : {"30", "10", "20"}) {
        stage.panel.WriteRecord(name, Description("title " + name, "1." + name, "about " + name));
    }
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog),
             List({"title 10|1.10|about 10", "title 20|1.20|about 20", "title 30|1.30|about 30"}));
}

void tst_InstalledListDialog::brokenRecordsGiveNoRowAndNoGap()
{
    Stage stage;
    stage.panel.WriteRecord("1", Description("one", "", ""));
    stage.panel.MakeRecord("2");
    stage.panel.WriteRecord("3", "\xEF\xBB\xBFno description");
    stage.panel.WriteRecord("4", Description("four", "", ""));
    stage.panel.WriteRecord("5", File(ProjectBuilder::StepSets({})));
    stage.panel.WriteRecord("6", "");
    stage.panel.WriteRecord("7", Description("seven", "", ""));
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), List({"one||", "four||", "seven||"}));
    const std::string root = "/var/lib/KxUserPackages/";
    QCOMPARE(stage.Log(),
             Text("Unable to access " + root + "2/UserPackage.kx-project file.\n\n" +
                  " Unable to analyze the data in " + root + "3/UserPackage.kx-project file.\n\n" +
                  root +
                  "5/UserPackage.kx-project file is not kx-package.\n Root object of this file "
                  "is not DB_KxUserProject.\n\n" +
                  root + "6/UserPackage.kx-project file is corrupted.\n\n"));
}

void tst_InstalledListDialog::plainFilesGiveNoRow()
{
    Stage stage;
    stage.panel.WritePlainFile("a file", File(Root()));
    stage.panel.WritePlainFile("UserPackage.kx-project", File(Root()));
    stage.panel.WriteRecord("package", Description("one", "2", "three"));
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), List({"one|2|three"}));
    // The folder itself and its parent are no entries: nobody looked for a description there.
    QCOMPARE(stage.Log().count(QStringLiteral("Unable to access")), 2);
    QVERIFY(!stage.Log().contains(QStringLiteral("/./")));
    QVERIFY(!stage.Log().contains(QStringLiteral("/../")));
}

void tst_InstalledListDialog::cellsAreUtf8()
{
    Stage stage;
    stage.panel.WriteRecord("Füße", Description("Füße", "1.0 é", "新しい\nレシピ"));
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), List({"Füße|1.0 é|新しい\nレシピ"}));
}

void tst_InstalledListDialog::readsOnlyTheRootOfTheDescription()
{
    Stage stage;
    stage.panel.WriteRecord("a", File(Root({{{"$type", ProjectBuilder::Text("Nobody.Knows")}}})));
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), List({"Line 4 recipes|1.0.3|Adds the recipe viewer"}));
    QCOMPARE(stage.Log(), QString());
}

void tst_InstalledListDialog::hundredsOfRecords()
{
    Stage stage;
    QStringList expected;
    for (int i = 0; i < 300; ++i) {
        const QString number = QStringLiteral("%1").arg(i, 3, 10, QLatin1Char('0'));
        stage.panel.WriteRecord(number.toStdString(),
                                Description("title " + number.toStdString(), "1", "c"));
        expected.append(QStringLiteral("title %1|1|c").arg(number));
    }
    InstalledListDialog dialog(nullptr);

    dialog.show();

    QCOMPARE(Rows(dialog), expected);
}

void tst_InstalledListDialog::rootThatIsNoObjectEndsTheFilling()
{
    Stage stage;
    stage.panel.WriteRecord("1", Description("one", "", ""));
    stage.panel.WriteRecord("2", "\xEF\xBB\xBF[]");
    OpenDialog dialog;

    QVERIFY_EXCEPTION_THROWN(dialog.Onloaded(), std::runtime_error);

    QCOMPARE(Rows(dialog), List({"one||"}));
}

void tst_InstalledListDialog::fillsTheTableOnceHoweverOftenItIsShown()
{
    Stage stage;
    stage.panel.WriteRecord("1", Description("one", "", ""));
    OpenDialog dialog;
    QCOMPARE(dialog.calls, 0);

    dialog.show();
    QCOMPARE(dialog.calls, 1);
    stage.panel.WriteRecord("2", Description("two", "", ""));
    dialog.hide();
    dialog.show();
    dialog.showFullScreen();

    QCOMPARE(dialog.calls, 1);
    QCOMPARE(Rows(dialog), List({"one||"}));
}

void tst_InstalledListDialog::secondDialogReadsTheFolderAgain()
{
    Stage stage;
    stage.panel.WriteRecord("1", Description("one", "", ""));
    InstalledListDialog first(nullptr);
    first.show();
    stage.panel.WriteRecord("2", Description("two", "", ""));

    InstalledListDialog second(nullptr);
    second.show();

    QCOMPARE(Rows(first), List({"one||"}));
    QCOMPARE(Rows(second), List({"one||", "two||"}));
}

QTEST_MAIN(tst_InstalledListDialog)

#include "tst_installedlistdialog.moc"
