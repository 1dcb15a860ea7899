// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QProcess>

#include <memory>

/// Runs one child program and hands on what it writes and how it ends, as zero-terminated strings.
///
/// Everything happens on the thread that owns the object, through its event loop. The end of the
/// object kills a child that still runs; no hook is called from then on.
class IProcess : public QObject
{
    Q_OBJECT

public:
    explicit IProcess(QObject* parent);
    IProcess(const IProcess&) = delete;
    IProcess& operator=(const IProcess&) = delete;
    ~IProcess() override;

    /// Starts the child with @p argc arguments; the texts are read as Latin-1. Does not wait for
    /// the start to succeed: a program that cannot be executed may show later, as OnFnished(-1).
    /// @param program  a null pointer stands for no program
    /// @return true when the child runs or is starting
    bool Start(const char* program, int argc, const char** argv);

    /// Receives what the child's standard output held at one moment: part of a line, or several.
    virtual void OnOutputStdOut(const char* text) = 0;

    /// Receives the same of the child's standard error.
    virtual void OnOutputStdErr(const char* text) = 0;

    /// Receives the child's exit code, or -1 for an error of the process. A child that crashes
    /// gives both: first -1, then its exit code.
    virtual void OnFnished(int exitCode) = 0;

    /// The last QProcess::ProcessError, or -1 when there was none.
    [[nodiscard]] int LastError() const { return m_lastError; }

private Q_SLOTS:
    void imp_updateOutput();
    void imp_updateError();
    void imp_proc_finished(int exitCode, QProcess::ExitStatus exitStatus);
    void imp_proc_errorOccurred(QProcess::ProcessError error);

private:
    class Process;

    void MakeProcess();

    std::unique_ptr<Process> m_process;
    int m_lastError = -1;
};
