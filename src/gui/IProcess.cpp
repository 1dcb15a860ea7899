// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "gui/IProcess.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdio>

IProcess::IProcess(QObject* parent) : QObject(parent)
{
    connect(&m_process, &QProcess::readyReadStandardOutput, this, &IProcess::imp_updateOutput);
    connect(&m_process, &QProcess::readyReadStandardError, this, &IProcess::imp_updateError);
    connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &IProcess::imp_proc_finished);
    connect(&m_process, &QProcess::errorOccurred, this, &IProcess::imp_proc_errorOccurred);
}

IProcess::~IProcess()
{
    // The process ends after this and would report the end of its child to hooks that are gone.
    m_process.disconnect(this);
}

bool IProcess::Start(const char* program, int argc, const char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments.append(QString::fromLatin1(argv[i]));
    }
    m_process.start(QString::fromLatin1(program), arguments, QIODevice::ReadWrite);
    return m_process.state() != QProcess::NotRunning;
}

void IProcess::imp_updateOutput()
{
    const QByteArray chunk = m_process.readAllStandardOutput();
    OnOutputStdOut(chunk.constData());
}

void IProcess::imp_updateError()
{
    const QByteArray chunk = m_process.readAllStandardError();
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
