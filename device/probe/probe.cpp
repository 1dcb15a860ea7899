// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Tells what the windows of a running program show, to whoever listens at the socket that the
// environment variable KX_PROBE names, or at the other end of the port, a character device, that it
// names. Loaded by QT_QPA_GENERIC_PLUGINS=kxprobe; the program itself
// knows nothing of it. Changes nothing but what it is asked for: "quit" leaves the event loop.
//
// Each line to the listener is a JSON object: a state whenever what is shown has changed, and the
// answer {"sync": N} to the request "sync", once the screen shows everything up to there.
#include "CutTexts.h"

#include <QAbstractButton>
#include <QApplication>
#include <QEvent>
#include <QGenericPlugin>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLabel>
#include <QPlainTextEdit>
#include <QSocketNotifier>
#include <QTabBar>
#include <QTabWidget>
#include <QTableWidget>
#include <QTextCursor>
#include <QTimer>
#include <QWindow>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace
{

constexpr int kLongestLog = 1 << 16; // characters; of a longer log the end is told

QJsonArray Place(const QWidget& widget, const QRect& part)
{
    const QPoint corner = widget.mapToGlobal(part.topLeft());
    return {corner.x(), corner.y(), part.width(), part.height()};
}

void TellTabs(const QTabWidget& tabs, QJsonObject& state)
{
    QJsonObject places;
    const QTabBar& bar = *tabs.tabBar();
    for (int i = 0; i < bar.count(); ++i) {
        places[bar.tabText(i).trimmed()] = Place(bar, bar.tabRect(i));
    }
    state[QStringLiteral("tabs")] = places;
    state[QStringLiteral("current")] = bar.tabText(bar.currentIndex()).trimmed();
}

void TellLog(const QPlainTextEdit& area, QJsonObject& state)
{
    const QString text = area.toPlainText();
    state[QStringLiteral("text")] = text.right(kLongestLog);
    state[QStringLiteral("length")] = text.size();
    // The range of the scroll bar tells less: it counts on from lines that are not laid out.
    QTextCursor end(area.document());
    end.movePosition(QTextCursor::End);
    state[QStringLiteral("atEnd")] = area.viewport()->rect().contains(area.cursorRect(end));
}

void TellRows(const QTableWidget& table, QJsonObject& state)
{
    QJsonArray rows;
    for (int row = 0; row < table.rowCount(); ++row) {
        QJsonArray cells;
        for (int column = 0; column < table.columnCount(); ++column) {
            const QTableWidgetItem* const item = table.item(row, column);
            cells.append(item != nullptr ? item->text() : QString());
        }
        rows.append(cells);
    }
    state[QStringLiteral("rows")] = rows;
}

/// Tells whether the screen shows a widget. A window that asked to be shown takes no press before
/// the window manager has placed it.
bool IsOnScreen(const QWidget& widget)
{
    const QWindow* const window = widget.window()->windowHandle();
    return widget.isVisible() && window != nullptr && window->isExposed();
}

QJsonObject StateOf(const QWidget& widget)
{
    QJsonObject state;
    state[QStringLiteral("shown")] = IsOnScreen(widget);
    state[QStringLiteral("hidden")] = widget.isHidden();
    state[QStringLiteral("at")] = Place(widget, widget.rect());
    state[QStringLiteral("points")] = widget.font().pointSize();
    if (!widget.styleSheet().isEmpty()) {
        state[QStringLiteral("style")] = widget.styleSheet();
    }
    if (const auto* const label = qobject_cast<const QLabel*>(&widget)) {
        state[QStringLiteral("text")] = label->text();
    } else if (const auto* const button = qobject_cast<const QAbstractButton*>(&widget)) {
        state[QStringLiteral("text")] = button->text();
    } else if (const auto* const tabs = qobject_cast<const QTabWidget*>(&widget)) {
        TellTabs(*tabs, state);
    } else if (const auto* const area = qobject_cast<const QPlainTextEdit*>(&widget)) {
        TellLog(*area, state);
    } else if (const auto* const table = qobject_cast<const QTableWidget*>(&widget)) {
        TellRows(*table, state);
    }
    const QStringList cut = CutTexts(widget);
    if (!cut.isEmpty()) {
        state[QStringLiteral("cut")] = QJsonArray::fromStringList(cut);
    }
    return state;
}

/// Returns the state of every named widget that is not a part of another's inside.
QJsonObject StateOfAll()
{
    QJsonObject widgets;
    QString front;
    const QWidgetList windows = QApplication::topLevelWidgets();
    for (const QWidget* const window : windows) {
        if (window->objectName().isEmpty() || !window->isVisible()) {
            continue;
        }
        if (front.isEmpty() || window->isModal()) {
            front = window->objectName();
        }
        widgets[window->objectName()] = StateOf(*window);
        const auto parts = window->findChildren<QWidget*>();
        for (const QWidget* const part : parts) {
            const QString name = part->objectName();
            if (!name.isEmpty() && !name.startsWith(QLatin1String("qt_"))) {
                widgets[name] = StateOf(*part);
            }
        }
    }
    return {{QStringLiteral("front"), front}, {QStringLiteral("widgets"), widgets}};
}

/// Tells whether a path names a port to the machine that a panel is emulated on.
bool IsPort(const char* path)
{
    struct stat found = {};
    return stat(path, &found) == 0 && S_ISCHR(found.st_mode);
}

int Connect(const char* path)
{
    if (IsPort(path)) {
        return open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof(address.sun_path)) {
        return -1;
    }
    std::memcpy(address.sun_path, path, std::strlen(path) + 1);
    const int link = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (link >= 0 &&
        connect(link, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(link);
        return -1;
    }
    return link;
}

class Probe final : public QObject
{
public:
    explicit Probe(int link) : m_link(link), m_requests(link, QSocketNotifier::Read)
    {
        m_pause.setSingleShot(true);
        m_pause.setInterval(0); // after everything that has happened by now
        connect(&m_pause, &QTimer::timeout, this, &Probe::TellChange);
        connect(&m_requests, &QSocketNotifier::activated, this, &Probe::Answer);
        QCoreApplication::instance()->installEventFilter(this);
    }
    Probe(const Probe&) = delete;
    Probe& operator=(const Probe&) = delete;
    ~Probe() override { close(m_link); }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        switch (event->type()) {
        case QEvent::Expose:
        case QEvent::Paint:
        case QEvent::Show:
        case QEvent::Hide:
        case QEvent::Move:
        case QEvent::Resize:
        case QEvent::WindowActivate:
            if (!m_pause.isActive()) {
                m_pause.start();
            }
            break;
        default:
            break;
        }
        return QObject::eventFilter(object, event);
    }

private:
    void TellChange()
    {
        const QByteArray state = QJsonDocument(StateOfAll()).toJson(QJsonDocument::Compact);
        if (state != m_told) {
            m_told = state;
            Write(state);
        }
    }

    void Answer()
    {
        char bytes[256];
        const ssize_t count = read(m_link, bytes, sizeof(bytes));
        if (count <= 0) {
            m_requests.setEnabled(false); // the listener is gone
            return;
        }
        m_asked.append(bytes, static_cast<int>(count));
        for (int end = m_asked.indexOf('\n'); end >= 0; end = m_asked.indexOf('\n')) {
            const QByteArray request = m_asked.left(end);
            m_asked.remove(0, end + 1);
            if (request == "sync") {
                QGuiApplication::sync();
                TellChange();
                Write("{\"sync\":" + QByteArray::number(++m_syncs) + "}");
            } else if (request == "quit") {
                QCoreApplication::quit();
            }
        }
    }

    void Write(const QByteArray& line)
    {
        QByteArray rest = line + '\n';
        while (!rest.isEmpty()) {
            const auto size = static_cast<std::size_t>(rest.size());
            ssize_t count = send(m_link, rest.constData(), size, MSG_NOSIGNAL);
            if (count < 0 && errno == ENOTSOCK) {
                count = write(m_link, rest.constData(), size);
            }
            if (count < 0 && errno != EINTR) {
                return;
            }
            rest.remove(0, count > 0 ? static_cast<int>(count) : 0);
        }
    }

    int m_link;
    QSocketNotifier m_requests;
    QTimer m_pause;
    QByteArray m_asked; ///< the beginning of a request
    QByteArray m_told;  ///< the last state
    int m_syncs = 0;
};

} // namespace

/// What Qt loads; makes the probe when there is a listener.
class ProbePlugin final : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "probe.json")

public:
    QObject* create(const QString& /*name*/, const QString& /*options*/) override
    {
        const char* const path = std::getenv("KX_PROBE");
        const int link = path != nullptr ? Connect(path) : -1;
        return link >= 0 ? new Probe(link) : nullptr;
    }
};

#include "probe.moc"
