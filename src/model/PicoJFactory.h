// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/IPicoJ.h"
#include "model/T_PrototypeTable.h"

/// The prototypes of the project classes, found by their "$type" string. Owns them.
class PicoJFactory : public T_PrototypeTable<IPicoJ>
{
public:
    /// Appends one prototype of each of the thirteen project classes, in their fixed order.
    void RegisterProjectClasses();
};
