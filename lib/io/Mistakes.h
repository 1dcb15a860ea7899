// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#pragma once

#include "io/Error.h"

#include <utility>
#include <vector>

namespace kx::io
{

/// What is wrong with a file that somebody has written: all of it, so that it is corrected in one
/// go.
class Mistakes
{
public:
    /// Does a piece of the work. An Error that it throws is kept, and the work goes on behind it.
    /// @return false when there was one
    template <class Work>
    bool Try(Work work)
    {
        try {
            work();
            return true;
        } catch (const Errors& errors) {
            m_all.insert(m_all.end(), errors.All().begin(), errors.All().end());
        } catch (const Error& error) {
            m_all.push_back(error);
        }
        return false;
    }

    [[nodiscard]] const std::vector<Error>& All() const { return m_all; }

    /// Throws what there is, if there is anything.
    /// @throws Errors
    void ThrowAny() const
    {
        if (!m_all.empty()) {
            throw Errors(m_all);
        }
    }

private:
    std::vector<Error> m_all;
};

} // namespace kx::io
