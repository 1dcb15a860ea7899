// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// The window's form.
#include "gui/Stage.h"
#include "gui/ui_mainwindow.h"

#include <QTest>

#include <array>
#include <cstddef>

namespace
{

const char* const kValueStyle = "QLabel\n{\n\tbackground-color:rgb(213, 213, 213)\n}";
const char* const kMessageStyle = "* {background-color : rgb(199, 253, 255)}";

/// A widget of the form with its place on the design screen.
struct FormRow {
    const char* name;
    const char* type;
    const char* parent;
    QRect place;
    int points;
    const char* style;
    const char* text;
};

const FormRow kForm[] = {
    {"appTitle", "QLabel", "centralWidget", {10, 10, 311, 31}, 24, "", "Software Update"},
    {"CancelButton", "QPushButton", "tabMain", {420, 310, 171, 61}, 16, "", "Cancel"},
    {"labelTitle", "QLabel", "tabMain", {20, 0, 201, 31}, 16, "", "Software Title"},
    {"RebootButton", "QPushButton", "tabMain", {310, 310, 171, 61}, 16, "", "reboot"},
    {"textComment", "QLabel", "tabMain", {450, 30, 311, 31}, 16, kValueStyle, ""},
    {"OkButton", "QPushButton", "tabMain", {310, 310, 171, 61}, 16, "", "OK"},
    {"labelMsg", "QLabel", "tabMain", {20, 70, 741, 231}, 24, kMessageStyle, ""},
    {"textTitle", "QLabel", "tabMain", {20, 30, 231, 31}, 16, kValueStyle, ""},
    {"labelVersion", "QLabel", "tabMain", {260, 0, 101, 31}, 16, "", "Version"},
    {"textVersion", "QLabel", "tabMain", {260, 30, 181, 31}, 16, kValueStyle, ""},
    {"labelComment", "QLabel", "tabMain", {450, 0, 111, 31}, 16, "", "Comment"},
    {"InstallButton", "QPushButton", "tabMain", {200, 310, 171, 61}, 16, "", "Install"},
    {"logArea", "QPlainTextEdit", "tabLog", {10, 10, 761, 351}, 16, "", ""},
    {"InstalledListButton",
     "QPushButton",
     "centralWidget",
     {590, 20, 201, 51},
     16,
     "",
     "Installed list"},
};

/// The names of a widget's own children, in the order of their creation.
QStringList ChildrenOf(const QWidget& parent)
{
    QStringList names;
    for (const QObject* const child : parent.children()) {
        names.append(child->objectName());
    }
    return names;
}

} // namespace

class tst_MainWindowLayout : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void widgetsOfTheForm_data();
    void widgetsOfTheForm();
    void widgetsAreMadeInTheirOrder();
    void pointersStandInTheirOrder();
    void windowItself();
    void windowKeepsANameThatItHas();
    void tabs();
    void messageArea();
    void logArea();
};

void tst_MainWindowLayout::widgetsOfTheForm_data()
{
    QTest::addColumn<int>("row");
    for (int i = 0; i < static_cast<int>(std::size(kForm)); ++i) {
        QTest::newRow(kForm[i].name) << i;
    }
}

void tst_MainWindowLayout::widgetsOfTheForm()
{
    QFETCH(const int, row);
    const FormRow& expected = kForm[row];
    const Stage stage;

    const auto* const widget = stage.Get<QWidget>(expected.name);

    QVERIFY(widget != nullptr);
    QCOMPARE(widget->metaObject()->className(), expected.type);
    QCOMPARE(widget->parentWidget()->objectName(), QLatin1String(expected.parent));
    QCOMPARE(widget->geometry(), expected.place);
    QCOMPARE(widget->font().pointSize(), expected.points);
    QCOMPARE(widget->styleSheet(), QLatin1String(expected.style));
    QCOMPARE(widget->property(qstrcmp(expected.type, "QPlainTextEdit") == 0 ? "plainText" : "text")
                 .toString(),
             QLatin1String(expected.text));
}

void tst_MainWindowLayout::widgetsAreMadeInTheirOrder()
{
    const Stage stage;

    QCOMPARE(ChildrenOf(*stage.Get<QWidget>("centralWidget")),
             List({"appTitle", "tabsCenter", "InstalledListButton"}));
    QCOMPARE(
        ChildrenOf(*stage.Get<QWidget>("tabMain")),
        List({"CancelButton", "labelTitle", "RebootButton", "textComment", "OkButton", "labelMsg",
              "textTitle", "labelVersion", "textVersion", "labelComment", "InstallButton"}));
    QCOMPARE(ChildrenOf(*stage.Get<QWidget>("tabLog")), List({"logArea"}));
}

void tst_MainWindowLayout::pointersStandInTheirOrder()
{
    using Ui = Ui_MainWindow;
    const std::array<std::size_t, 18> offsets = {
        offsetof(Ui, centralWidget), offsetof(Ui, appTitle),     offsetof(Ui, tabsCenter),
        offsetof(Ui, tabMain),       offsetof(Ui, CancelButton), offsetof(Ui, labelTitle),
        offsetof(Ui, RebootButton),  offsetof(Ui, textComment),  offsetof(Ui, OkButton),
        offsetof(Ui, labelMsg),      offsetof(Ui, textTitle),    offsetof(Ui, labelVersion),
        offsetof(Ui, textVersion),   offsetof(Ui, labelComment), offsetof(Ui, InstallButton),
        offsetof(Ui, tabLog),        offsetof(Ui, logArea),      offsetof(Ui, InstalledListButton)};

    for (std::size_t i = 0; i < offsets.size(); ++i) {
        QCOMPARE(offsets.at(i), i * sizeof(void*));
    }
    QCOMPARE(sizeof(Ui), offsets.size() * sizeof(void*));
}

void tst_MainWindowLayout::windowItself()
{
    const Stage stage;

    QCOMPARE(stage.window->objectName(), QStringLiteral("MainWindow"));
    QCOMPARE(stage.window->size(), QSize(800, 480));
    QCOMPARE(stage.window->windowTitle(), QStringLiteral("Vantor q-Updater"));
    QCOMPARE(stage.window->styleSheet(),
             QStringLiteral("* {background-color : rgb(71, 142, 255)}\nQScrollBar{\n    min-width: "
                            "32px;\n    min-height: 32px;\n}\n"));
    QCOMPARE(stage.window->centralWidget(), stage.Get<QWidget>("centralWidget"));
    QCOMPARE(stage.window->centralWidget()->metaObject()->className(), "QWidget");
}

void tst_MainWindowLayout::windowKeepsANameThatItHas()
{
    QMainWindow window;
    window.setObjectName(QStringLiteral("another"));
    Ui_MainWindow ui{};

    ui.setupUi(&window);

    QCOMPARE(window.objectName(), QStringLiteral("another"));
}

void tst_MainWindowLayout::tabs()
{
    const Stage stage;
    const auto* const tabs = stage.Get<QTabWidget>("tabsCenter");

    QCOMPARE(tabs->metaObject()->className(), "QTabWidget");
    QCOMPARE(tabs->parentWidget()->objectName(), QStringLiteral("centralWidget"));
    QCOMPARE(tabs->geometry(), QRect(10, 50, 781, 431));
    QCOMPARE(tabs->styleSheet(), QStringLiteral("QTabBar::tab { height:38; width: 60; }"));
    QCOMPARE(tabs->iconSize(), QSize(16, 16));
    QCOMPARE(tabs->font(), stage.window->font());
    QCOMPARE(tabs->currentIndex(), 0);
    QCOMPARE(tabs->count(), 2);
    QCOMPARE(tabs->widget(0)->objectName(), QStringLiteral("tabMain"));
    QCOMPARE(tabs->widget(1)->objectName(), QStringLiteral("tabLog"));
    QCOMPARE(tabs->tabText(0), QStringLiteral("Install"));
    QCOMPARE(tabs->tabText(1), QStringLiteral("  Log  "));
}

void tst_MainWindowLayout::messageArea()
{
    const Stage stage;

    QCOMPARE(stage.Get<QLabel>("labelMsg")->alignment(), Qt::AlignHCenter | Qt::AlignVCenter);
    QVERIFY(stage.Get<QLabel>("labelMsg")->wordWrap());
    QVERIFY(!stage.Get<QLabel>("textTitle")->wordWrap());
}

void tst_MainWindowLayout::logArea()
{
    const Stage stage;

    const auto* const area = stage.Get<QPlainTextEdit>("logArea");

    QVERIFY(area->isReadOnly());
    QCOMPARE(area->textInteractionFlags(), Qt::TextInteractionFlags(Qt::TextSelectableByMouse));
    QCOMPARE(area->lineWrapMode(), QPlainTextEdit::WidgetWidth);
}

QTEST_MAIN(tst_MainWindowLayout)

#include "tst_mainwindow_layout.moc"
