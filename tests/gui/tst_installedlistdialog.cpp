// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The list of the installed packages.
#include "gui/AutoResize.h"
#include "gui/InstalledListDialog.h"
#include "gui/MetaObject.h"
#include "gui/Stage.h"
#include "gui/VirtualTable.h"
#include "gui/ui_InstalledListDialog.h"

#include <QHeaderView>
#include <QTableWidget>
#include <QTest>

#include <cstddef>
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

QTableWidget& TableOf(const InstalledListDialog& dialog)
{
    return *dialog.findChild<QTableWidget*>(QStringLiteral("tableWidget"));
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

/// The font sizes of everything in the dialog that follows its size, or -1 when they differ.
int PointsOf(const InstalledListDialog& dialog)
{
    const QTableWidget& table = TableOf(dialog);
    QList<int> sizes = {
        dialog.findChild<QLabel*>(QStringLiteral("dialogTitle"))->font().pointSize(),
        dialog.findChild<QPushButton*>(QStringLiteral("closeButton"))->font().pointSize(),
        table.font().pointSize(),
        table.horizontalHeader()->font().pointSize(),
        table.verticalHeader()->font().pointSize(),
    };
    for (int column = 0; column < table.columnCount(); ++column) {
        sizes.append(
            table.horizontalHeaderItem(column)->data(Qt::FontRole).value<QFont>().pointSize());
    }
    return sizes.count(sizes.first()) == sizes.size() ? sizes.first() : -1;
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
    void slotsAndVirtualFunctions();
    void pointersStandInTheirOrder();
    void dialogItself();
    void widgetsOfTheForm_data();
    void widgetsOfTheForm();
    void table();
    void stretchesByTheWindowsFactors_data();
    void stretchesByTheWindowsFactors();

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

    void fontSizesFollowTheDialog_data();
    void fontSizesFollowTheDialog();
    void resizingSetsTheWidthOfTheVersion();
    void resizingChangesNothingElseOfAHeadersFont();
    void closeButtonCloses();
};

void tst_InstalledListDialog::slotsAndVirtualFunctions()
{
    QCOMPARE(OwnMethods(InstalledListDialog::staticMetaObject),
             List({"slot on_closeButton_clicked()"}));
    QCOMPARE(PlaceInVirtualTable(&InstalledListDialog::Onloaded),
             PlaceInVirtualTable(&QDialog::reject) + 1);
}

void tst_InstalledListDialog::pointersStandInTheirOrder()
{
    using Ui = Ui_InstalledListDialog;

    QCOMPARE(offsetof(Ui, closeButton), std::size_t{0});
    QCOMPARE(offsetof(Ui, dialogTitle), sizeof(void*));
    QCOMPARE(offsetof(Ui, tableWidget), 2 * sizeof(void*));
    QCOMPARE(sizeof(Ui), 3 * sizeof(void*));
}

void tst_InstalledListDialog::dialogItself()
{
    const Stage stage;
    const InstalledListDialog dialog(nullptr);

    QCOMPARE(dialog.objectName(), QStringLiteral("InstalledListDialog"));
    QCOMPARE(dialog.size(), QSize(800, 460));
    QCOMPARE(dialog.font().pointSize(), 16);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Dialog"));
    QCOMPARE(dialog.parent(), nullptr);
    QCOMPARE(Rows(dialog), QStringList());
    QStringList children;
    for (const QObject* const child : dialog.children()) {
        children.append(child->objectName());
    }
    QCOMPARE(children, List({"closeButton", "dialogTitle", "tableWidget"}));
}

void tst_InstalledListDialog::widgetsOfTheForm_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QRect>("place");
    QTest::addColumn<QString>("text");
    QTest::newRow("closeButton") << QStringLiteral("QPushButton") << QRect(320, 390, 151, 61)
                                 << QStringLiteral("Close");
    QTest::newRow("dialogTitle") << QStringLiteral("QLabel") << QRect(30, 30, 441, 31)
                                 << QStringLiteral("Installed Software List");
    QTest::newRow("tableWidget") << QStringLiteral("QTableWidget") << QRect(30, 80, 741, 301)
                                 << QString();
}

void tst_InstalledListDialog::widgetsOfTheForm()
{
    QFETCH(const QString, type);
    QFETCH(const QRect, place);
    QFETCH(const QString, text);
    const Stage stage;
    const InstalledListDialog dialog(nullptr);

    const auto* const widget = dialog.findChild<QWidget*>(QLatin1String(QTest::currentDataTag()));

    QVERIFY(widget != nullptr);
    QCOMPARE(QLatin1String(widget->metaObject()->className()), type);
    QCOMPARE(widget->parentWidget(), static_cast<const QWidget*>(&dialog));
    QCOMPARE(widget->geometry(), place);
    QCOMPARE(widget->property("text").toString(), text);
    QCOMPARE(widget->font().pointSize(), 16);
}

void tst_InstalledListDialog::table()
{
    const Stage stage;
    const InstalledListDialog dialog(nullptr);

    const QTableWidget& table = TableOf(dialog);

    QCOMPARE(table.columnCount(), 3);
    QStringList headers;
    for (int column = 0; column < 3; ++column) {
        const QTableWidgetItem& header = *table.horizontalHeaderItem(column);
        headers.append(header.text());
        QCOMPARE(header.data(Qt::FontRole).value<QFont>().pointSize(), 16);
    }
    QCOMPARE(headers, List({"Software Title", "Version", "Comment"}));
    QCOMPARE(table.horizontalHeader()->defaultSectionSize(), 180);
    QVERIFY(table.horizontalHeader()->stretchLastSection());
}

void tst_InstalledListDialog::stretchesByTheWindowsFactors_data()
{
    QTest::addColumn<double>("scaleW");
    QTest::addColumn<double>("scaleH");
    QTest::addColumn<QRect>("button");
    QTest::addColumn<QRect>("title");
    QTest::addColumn<QRect>("table");
    QTest::newRow("1024 x 600") << 1.28 << 1.25 << QRect(409, 487, 193, 76)
                                << QRect(38, 37, 564, 38) << QRect(38, 100, 948, 376);
    QTest::newRow("480 x 272") << 480 / 800.0 << 272 / 480.0 << QRect(192, 221, 90, 34)
                               << QRect(18, 17, 264, 17) << QRect(18, 45, 444, 170);
}

void tst_InstalledListDialog::stretchesByTheWindowsFactors()
{
    QFETCH(const double, scaleW);
    QFETCH(const double, scaleH);
    QFETCH(const QRect, button);
    QFETCH(const QRect, title);
    QFETCH(const QRect, table);
    const Stage stage;
    AutoResize::ScreenScaleW = scaleW;
    AutoResize::ScreenScaleH = scaleH;

    InstalledListDialog dialog(nullptr);
    dialog.show();

    QCOMPARE(dialog.findChild<QWidget*>(QStringLiteral("closeButton"))->geometry(), button);
    QCOMPARE(dialog.findChild<QWidget*>(QStringLiteral("dialogTitle"))->geometry(), title);
    QCOMPARE(TableOf(dialog).geometry(), table);
    QCOMPARE(dialog.size(), QSize(800, 460));
}

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

void tst_InstalledListDialog::fontSizesFollowTheDialog_data()
{
    QTest::addColumn<QSize>("size");
    QTest::addColumn<int>("points");
    QTest::newRow("480 x 272") << QSize(480, 272) << 12;
    QTest::newRow("one pixel more") << QSize(953, 137) << 14;
    QTest::newRow("640 x 480") << QSize(640, 480) << 14;
    QTest::newRow("641 x 480") << QSize(641, 480) << 16;
    QTest::newRow("800 x 600") << QSize(800, 600) << 16;
    QTest::newRow("801 x 600") << QSize(801, 600) << 18;
}

void tst_InstalledListDialog::fontSizesFollowTheDialog()
{
    QFETCH(const QSize, size);
    QFETCH(const int, points);
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    dialog.show();
    QCOMPARE(PointsOf(dialog), 16);

    dialog.resize(size);

    QCOMPARE(dialog.size(), size);
    QCOMPARE(PointsOf(dialog), points);
}

void tst_InstalledListDialog::resizingSetsTheWidthOfTheVersion()
{
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    QTableWidget& table = TableOf(dialog);
    QCOMPARE(table.columnWidth(1), 180);
    dialog.show();
    QCOMPARE(table.columnWidth(1), 120);
    table.setColumnWidth(1, 300);

    dialog.resize(700, 400);

    QCOMPARE(table.columnWidth(0), 180);
    QCOMPARE(table.columnWidth(1), 120);
}

void tst_InstalledListDialog::resizingChangesNothingElseOfAHeadersFont()
{
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    dialog.show();
    QTableWidgetItem& header = *TableOf(dialog).horizontalHeaderItem(2);
    QFont font = header.font();
    font.setItalic(true);
    header.setFont(font);

    dialog.resize(480, 272);

    QVERIFY(header.font().italic());
    QCOMPARE(header.font().pointSize(), 12);
}

void tst_InstalledListDialog::closeButtonCloses()
{
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    dialog.show();

    QTest::mouseClick(dialog.findChild<QPushButton*>(QStringLiteral("closeButton")),
                      Qt::LeftButton);

    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int{QDialog::Rejected});
}

QTEST_MAIN(tst_InstalledListDialog)

#include "tst_installedlistdialog.moc"
