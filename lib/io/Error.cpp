// SPDX-FileCopyrightText: The kx_Updater authors
// SPDX-License-Identifier: MIT
#include "io/Error.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace kx::io
{

Error::Error(ExitCode code, std::string where, const std::string& what, std::string remedy)
    : std::runtime_error(what), m_code(code), m_where(std::move(where)), m_remedy(std::move(remedy))
{
}

std::string Error::Line() const
{
    std::string line = m_where.empty() ? what() : m_where + ": " + what();
    if (!m_remedy.empty()) {
        line += "; " + m_remedy;
    }
    return line;
}

Errors::Errors(std::vector<Error> all)
    : Error(*std::max_element(
          all.begin(), all.end(),
          [](const Error& one, const Error& other) { return one.Code() < other.Code(); })),
      m_all(std::move(all))
{
}

Error AccessError(const std::string& path, const std::string& doing, int number)
{
    const std::string why = std::generic_category().message(number);
    return {ExitCode::kNoAccess, path, "cannot " + doing + ": " + why};
}

} // namespace kx::io
