// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT

// Ends the process that loads it (QT_QPA_GENERIC_PLUGINS=kxfirstshow) with 0 as soon as a window
// has been painted and the screen has it: the length of the process is the time to the first show.
#include <QApplication>
#include <QEvent>
#include <QGenericPlugin>
#include <QTimer>
#include <QWidget>

#include <unistd.h>

namespace
{

class FirstShow final : public QObject
{
public:
    FirstShow() { QCoreApplication::instance()->installEventFilter(this); }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        if (event->type() == QEvent::Paint && !m_isPainted) {
            m_isPainted = true;
            QTimer::singleShot(0, this, [] {
                QGuiApplication::sync();
                _exit(0);
            });
        }
        return QObject::eventFilter(object, event);
    }

private:
    bool m_isPainted = false;
};

} // namespace

/// What Qt loads.
class FirstShowPlugin final : public QGenericPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID QGenericPluginFactoryInterface_iid FILE "first_show.json")

public:
    QObject* create(const QString& /*name*/, const QString& /*options*/) override
    {
        return new FirstShow;
    }
};

#include "first_show.moc"
