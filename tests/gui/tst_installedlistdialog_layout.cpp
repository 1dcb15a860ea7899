// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The form of the list of the installed packages, and how it follows the dialog's size.
#include "gui/AutoResize.h"
#include "gui/InstalledListDialog.h"
#include "gui/InstalledTable.h"
#include "gui/MetaObject.h"
#include "gui/Stage.h"
#include "gui/VirtualTable.h"
#include "gui/ui_InstalledListDialog.h"

#include <QHeaderView>
#include <QTableWidget>
#include <QTest>

#include <cstddef>

namespace
{

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

} // namespace

class tst_InstalledListDialogLayout : public QObject
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
    void fontSizesFollowTheDialog_data();
    void fontSizesFollowTheDialog();
    void resizingSetsTheWidthOfTheVersion();
    void resizingChangesNothingElseOfAHeadersFont();
    void closeButtonCloses();
};

void tst_InstalledListDialogLayout::slotsAndVirtualFunctions()
{
    QCOMPARE(OwnMethods(InstalledListDialog::staticMetaObject),
             List({"slot on_closeButton_clicked()"}));
    QCOMPARE(PlaceInVirtualTable(&InstalledListDialog::Onloaded),
             PlaceInVirtualTable(&QDialog::reject) + 1);
}

void tst_InstalledListDialogLayout::pointersStandInTheirOrder()
{
    using Ui = Ui_InstalledListDialog;

    QCOMPARE(offsetof(Ui, closeButton), std::size_t{0});
    QCOMPARE(offsetof(Ui, dialogTitle), sizeof(void*));
    QCOMPARE(offsetof(Ui, tableWidget), 2 * sizeof(void*));
    QCOMPARE(sizeof(Ui), 3 * sizeof(void*));
}

void tst_InstalledListDialogLayout::dialogItself()
{
    const Stage stage;
    const InstalledListDialog dialog(nullptr);

    QCOMPARE(dialog.objectName(), QStringLiteral("InstalledListDialog"));
    QCOMPARE(dialog.size(), QSize(800, 460));
    QCOMPARE(dialog.font().pointSize(), 16);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Dialog"));
    QCOMPARE(dialog.parent(), nullptr);
    QCOMPARE(TableOf(dialog).rowCount(), 0);
    QStringList children;
    for (const QObject* const child : dialog.children()) {
        children.append(child->objectName());
    }
    QCOMPARE(children, List({"closeButton", "dialogTitle", "tableWidget"}));
}

void tst_InstalledListDialogLayout::widgetsOfTheForm_data()
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

void tst_InstalledListDialogLayout::widgetsOfTheForm()
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

void tst_InstalledListDialogLayout::table()
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

void tst_InstalledListDialogLayout::stretchesByTheWindowsFactors_data()
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

void tst_InstalledListDialogLayout::stretchesByTheWindowsFactors()
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

void tst_InstalledListDialogLayout::fontSizesFollowTheDialog_data()
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

void tst_InstalledListDialogLayout::fontSizesFollowTheDialog()
{
    QFETCH(const QSize, size);
    QFETCH(const int, points);
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    dialog.show();
    QCOMPARE(PointsOf(dialog), 16);
    // Fonts of their own do not follow the table's by themselves.
    for (QHeaderView* const header :
         {TableOf(dialog).horizontalHeader(), TableOf(dialog).verticalHeader()}) {
        header->setFont(QFont(QStringLiteral("DejaVu Serif"), 7));
    }

    dialog.resize(size);

    QCOMPARE(dialog.size(), size);
    QCOMPARE(PointsOf(dialog), points);
}

void tst_InstalledListDialogLayout::resizingSetsTheWidthOfTheVersion()
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

void tst_InstalledListDialogLayout::resizingChangesNothingElseOfAHeadersFont()
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

void tst_InstalledListDialogLayout::closeButtonCloses()
{
    const Stage stage;
    InstalledListDialog dialog(nullptr);
    dialog.show();

    QTest::mouseClick(dialog.findChild<QPushButton*>(QStringLiteral("closeButton")),
                      Qt::LeftButton);

    QVERIFY(!dialog.isVisible());
    QCOMPARE(dialog.result(), int{QDialog::Rejected});
}

QTEST_MAIN(tst_InstalledListDialogLayout)

#include "tst_installedlistdialog_layout.moc"
