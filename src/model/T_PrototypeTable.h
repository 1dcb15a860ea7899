// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "model/T_Array.h"

#include <cstring>

/// One prototype per class, in the order of registration; the base of the three factories.
///
/// @tparam T  interface of the prototypes, with a virtual destructor
template <class T>
class T_PrototypeTable
{
public:
    T_PrototypeTable() = default;
    T_PrototypeTable(const T_PrototypeTable&) = delete;
    T_PrototypeTable& operator=(const T_PrototypeTable&) = delete;
    /// Destroys the prototypes, the last one first.
    ~T_PrototypeTable()
    {
        while (prototypes.count > 0) {
            delete prototypes.items[--prototypes.count];
        }
    }

    /// Appends a prototype and takes it over.
    /// @return the index at which it stands
    int AddObject(T* prototype) { return prototypes.AddObject(prototype); }

    /// Returns the first prototype whose identity string equals @p id, or null.
    /// @param identity  the virtual function that tells a prototype's identity string
    [[nodiscard]] const T* Find(const char* id, const char* (T::*identity)() const) const
    {
        for (const T* prototype : prototypes) {
            if (std::strcmp((prototype->*identity)(), id) == 0) {
                return prototype;
            }
        }
        return nullptr;
    }

    /// The prototypes in the order of registration.
    [[nodiscard]] const T_Array<T*, 0, 10>& Prototypes() const { return prototypes; }

private:
    T_Array<T*, 0, 10> prototypes;
};
