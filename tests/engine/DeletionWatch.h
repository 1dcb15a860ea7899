// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

/// Watches whether an object is deleted while it lives, in a test binary linked with
/// DeletionWatch.cpp and the options that it names.
class DeletionWatch
{
public:
    explicit DeletionWatch(const void* object);
    DeletionWatch(const DeletionWatch&) = delete;
    DeletionWatch& operator=(const DeletionWatch&) = delete;
    ~DeletionWatch();

    [[nodiscard]] bool IsDeleted() const { return m_isDeleted; }

    /// Notes that @p object is being deleted; called by the replacements.
    void Note(const void* object) { m_isDeleted = m_isDeleted || object == m_object; }

private:
    const void* m_object;
    bool m_isDeleted = false;
};
