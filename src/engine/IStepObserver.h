// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// Is told where the loop over the install steps stands. The updater itself has none; a program
/// that wants to know which step does what need not guess it from the log. Observers are never
/// deleted through this interface.
class IStepObserver
{
public:
    IStepObserver() = default;
    IStepObserver(const IStepObserver&) = delete;
    IStepObserver& operator=(const IStepObserver&) = delete;

    /// A record's turn has come, before anything is done for it, also when it is no step at all.
    /// @param index  from 0
    /// @param count  how many records the package has
    virtual void OnStep(int index, int count) = 0;

    /// The record has been dealt with, and its failure, if any, is reported. Not called when an
    /// exception passes through.
    /// @param result  0, or what ends the installation
    virtual void OnStepEnd(int index, int result) = 0;

protected:
    ~IStepObserver() = default;
};
