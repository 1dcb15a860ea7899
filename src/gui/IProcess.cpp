// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/IProcess.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdio>

/// A QProcess that survives a system without room for another process. Qt takes the failed fork for
/// a child without a valid id, whose start it awaits forever, and ends by killing that id: -1,
/// which stands for every process.
class IProcess::Process final : public QProcess
{
public:
    Process() = default;
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() override
    {
        if (!HasChild()) {
            setProcessState(NotRunning);
        }
    }

    [[nodiscard]] bool HasChild() const { return processId() > 0; }
};

IProcess::IProcess(QObject* parent) : QObject(parent)
{
    MakeProcess();
}

void IProcess::MakeProcess()
{
    m_process = std::make_unique<Process>();
    const QProcess* const process = m_process.get();
    connect(process, &QProcess::readyReadStandardOutput, this, &IProcess::imp_updateOutput);
    connect(process, &QProcess::readyReadStandardError, this, &IProcess::imp_updateError);
    connect(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &IProcess::imp_proc_finished);
    connect(process, &QProcess::errorOccurred, this, &IProcess::imp_proc_errorOccurred);
}

IProcess::~IProcess()
{
    // The process ends after this and would report the end of its child to hooks that are gone.
    m_process->disconnect(this);
}

bool IProcess::Start(const char* program, int argc, const char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLatin1(argv[i]));
    }
    m_process->start(QString::fromLatin1(program), arguments, QIODevice::ReadWrite);
    if (m_process->state() != QProcess::NotRunning && !m_process->HasChild()) {
        MakeProcess();
        imp_proc_errorOccurred(QProcess::FailedToStart);
    }
    return m_process->state() != QProcess::NotRunning;
}

void IProcess::imp_updateOutput()
{
    const QByteArray chunk = m_process->readAllStandardOutput();
    OnOutputStdOut(chunk.constData());
}

void IProcess::imp_updateError()
{
    const QByteArray chunk = m_process->readAllStandardError();
    OnOutputStdErr(chunk.constData());
}

void IProcess::imp_proc_finished(int exitCode, QProcess::ExitStatus exitStatus)
{
    std::printf("imp_proc_finished  exitCode = %d, ExitStatus=%d\n", exitCode,
                static_cast<int>(exitStatus));
    OnFnished(exitCode);
}

void IProcess::imp_proc_errorOccurred(QProcess::ProcessError error)
{
    m_lastError = error;
    OnFnished(-1);
}
