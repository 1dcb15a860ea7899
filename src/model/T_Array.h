// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "osa/OSA_Mutex.h"

#include <cstdlib>
#include <new>
#include <type_traits>

/// A growable array of pointers that it does not own.
///
/// @tparam T         a pointer type
/// @tparam kInitial  slots at the start; 0 means that a new array owns no buffer
/// @tparam kGrowth   slots added when the array is full
template <class T, int kInitial, int kGrowth>
class T_ArrayObject : public OSA_Mutex
{
    static_assert(std::is_pointer_v<T> && kInitial == 0 && kGrowth > 0);

public:
    int capacity = kInitial; ///< slots in the buffer
    int count = 0;           ///< elements in use
    T* items = nullptr;      ///< buffer from `realloc`; null while the capacity is 0

    T_ArrayObject() = default;
    T_ArrayObject(const T_ArrayObject&) = delete;
    T_ArrayObject& operator=(const T_ArrayObject&) = delete;
    /// Frees the buffer, never the elements.
    ~T_ArrayObject() override { std::free(items); }

    /// Forgets the elements and keeps the buffer.
    virtual void Clear() { count = 0; }

    /// Appends @p obj.
    /// @return the index at which it stands
    /// @throws std::bad_alloc when the buffer cannot grow; the array is unchanged then
    virtual int AddObject(T obj)
    {
        if (count >= capacity) {
            Grow();
        }
        items[count] = obj;
        return count++;
    }

    [[nodiscard]] T* begin() const { return items; }
    [[nodiscard]] T* end() const { return items + count; }

private:
    void Grow()
    {
        const auto slots = static_cast<std::size_t>(capacity) + kGrowth;
        // The elements are pointers. NOLINTNEXTLINE(bugprone-sizeof-expression)
        void* const larger = std::realloc(static_cast<void*>(items), slots * sizeof(T));
        if (larger == nullptr) {
            throw std::bad_alloc();
        }
        items = static_cast<T*>(larger);
        capacity += kGrowth;
    }
};

/// The array under the name by which lists and tables use it.
template <class T, int kInitial = 0, int kGrowth = 10>
class T_Array : public T_ArrayObject<T, kInitial, kGrowth>
{
};
