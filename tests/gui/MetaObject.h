// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include <QMetaMethod>
#include <QMetaObject>
#include <QStringList>

/// The signals and slots that a class adds to its base, in meta-object order: "signal name(types)".
inline QStringList OwnMethods(const QMetaObject& type)
{
    QStringList methods;
    for (int i = type.methodOffset(); i < type.methodCount(); ++i) {
        const QMetaMethod method = type.method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        const bool isSlot = method.methodType() == QMetaMethod::Slot;
        methods.append((isSignal ? QStringLiteral("signal ")
                        : isSlot ? QStringLiteral("slot ")
                                 : QStringLiteral("method ")) +
                       QString::fromLatin1(method.methodSignature()));
    }
    return methods;
}
